#!/usr/bin/env python3
"""Works out of recorded requests which rights they need.

    kube_requests.py --compare DIRECTORY    whether test/data/kube-requests.txt is what the lists in it come to
    kube_requests.py --write DIRECTORY      makes it so

The directory holds lists of requests that tests made ("GET /api/v1/pods"), named WHO-TEST. A line of the result is
"WHO VERB RESOURCE.GROUP[/SUBRESOURCE]", with "core" for the group that has no name.
"""
import pathlib
import re
import sys

DATA = pathlib.Path(__file__).resolve().parent.parent.parent / "test/data/kube-requests.txt"
PATH = re.compile(r"/(?:api|apis/(?P<group>[^/]+))/v[0-9a-z]+(?:/namespaces/[^/]+(?=/[^/]))?"
                  r"/(?P<resource>[^/]+)(?:/(?P<name>[^/]+))?(?:/(?P<sub>[^/]+))?/?")

# Free for all who have a token; or a call to an agent, which no role is asked about.
OPEN = re.compile(r"/d2/jr|/version|/apis?|/apis/[^/]+|/apis/[^/]+/v[^/]+|/api/v1")
# A kind that there is not, for tests of what all kinds have in common; and what comes of a cluster or namespace that
# nobody knows.
MADE_UP = re.compile(r"/x/a|/api/v1/(all/)?widgets(/a)?|/apis//.*|.*/namespaces//.*")

def rights_of(method, path):
    """Pairs of verb and resource; none where no role is asked."""
    if OPEN.fullmatch(path):
        return []
    found = PATH.fullmatch(path)
    if not found:
        raise ValueError(f"{method} {path} is the path of no object")
    resource = f"{found['resource']}.{found['group'] or 'core'}" + (f"/{found['sub']}" if found["sub"] else "")
    if found["sub"] == "exec":  # a WebSocket; API servers from 1.35 on ask for "create" as well
        return [("get", resource), ("create", resource)]
    named = found["name"] is not None
    return [({"GET": "get" if named else "list", "POST": "create", "PATCH": "patch",
              "DELETE": "delete" if named else "deletecollection", "PUT": "update"}[method], resource)]


def lines_of(directory):
    lines = set()
    for file in sorted(pathlib.Path(directory).iterdir()):
        who = file.name.split("-")[0]
        for request in file.read_text().splitlines():
            method, path = request.split(" ", 1)
            if not MADE_UP.fullmatch(path):
                lines |= {f"{who} {verb} {resource}\n" for verb, resource in rights_of(method, path)}
    return sorted(lines)


def recorded():
    """{who: {(verb, resource)}}"""
    rights = {}
    for line in DATA.read_text().splitlines():
        who, verb, resource = line.split()
        rights.setdefault(who, set()).add((verb, resource))
    return rights


def main():
    mode, directory = sys.argv[1:]
    lines = lines_of(directory)
    if mode == "--write":
        DATA.write_text("".join(lines))
        return 0
    known = DATA.read_text().splitlines(keepends=True)
    for line in sorted(set(lines) - set(known)):
        print(f"asked for, and not in {DATA.name}: {line}", end="")
    for line in sorted(set(known) - set(lines)):
        print(f"in {DATA.name}, and never asked for: {line}", end="")
    return 0 if lines == known else 1


if __name__ == "__main__":
    sys.exit(main())
