#!/usr/bin/env python3
"""Reads every include below src/ and prints the rule that one breaks: a folder includes only what lies below it."""
import pathlib
import re
import sys

SRC = pathlib.Path(__file__).resolve().parent.parent / "src"

# Bottom to top. The first prefix that fits a file names its layer.
LAYERS = [
    ("kolt_storage", ["kolt/pool_info", "kolt/rate_controller", "kolt/uri_util"]),
    ("kolt", ["kolt/"]),
    ("json_spirit", ["json_spirit/"]),
    ("task", ["task/"]),
    ("host", ["host/"]),
    ("http", ["http/"]),
    ("json_rpc", ["json_rpc/"]),
    ("client_io", ["client_io/"]),
    ("mtf", ["mtf/"]),
    ("mtf_backup", ["mtf_backup/"]),
    ("job", ["job/"]),
    ("k8s/api", ["k8s/api/"]),
    ("k8s/job", ["k8s/job/"]),
    ("k8s_sclient", ["k8s/websvcs_agent/k8s_sclient/"]),
    ("websvcs", ["websvcs/"]),
    ("ctl", ["ctl/"]),
]
ORDER = ["kolt", "json_spirit", "kolt_storage", "task", "host", "http", "json_rpc", "client_io", "mtf", "mtf_backup",
         "job", "k8s/api", "k8s/job", "k8s_sclient", "websvcs", "ctl"]

# Beside the order: (who, whom, why).
FORBIDDEN = [
    ("k8s/api", {"mtf", "mtf_backup", "client_io", "job"}, "the Kubernetes library knows no backup sets"),
    ("websvcs", {"k8s/job", "k8s_sclient"}, "the agent reaches the plug-in only through its exported names"),
    ("ctl", {"k8s_sclient", "websvcs"}, "the command line speaks to the agent over its channel"),
]


def layer_of(path):
    for layer, prefixes in LAYERS:
        if any(path.startswith(prefix) for prefix in prefixes):
            return layer
    return None


def broken_rule(user, used):
    if ORDER.index(used) > ORDER.index(user):
        return f"'{user}' lies below '{used}', and nothing reaches up"
    for who, whom, why in FORBIDDEN:
        if user == who and used in whom:
            return f"'{user}' may not use '{used}': {why}"
    return None


def main():
    broken = 0
    for file in sorted(SRC.rglob("*")):
        if file.suffix not in (".h", ".cpp", ".hpp", ".ipp"):
            continue
        name = file.relative_to(SRC).as_posix()
        user = layer_of(name.replace("/test/", "/"))
        if user is None:
            print(f"{name}: lies in no known folder")
            broken += 1
            continue
        for number, line in enumerate(file.read_text(errors="replace").splitlines(), 1):
            found = re.match(r'\s*#\s*include\s+"([^"]+)"', line)
            used = layer_of(found.group(1)) if found else None
            rule = broken_rule(user, used) if used else None
            # Tests look at their own folder and what lies below, like the code beside them.
            if rule:
                print(f"{name}:{number}: includes \"{found.group(1)}\": {rule}")
                broken += 1
    if broken:
        print(f"{broken} includes against the direction of the folders (README.md, table of folders)")
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
