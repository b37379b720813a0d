#!/usr/bin/env python3
"""The roles of the chart give the rights that recorded requests need, and no other."""
import pathlib
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
import kube_requests  # noqa: E402
from chart_test import objects, one  # noqa: E402

# Of objects that lie in the release's own namespace: a role there is enough.
OWN_NAMESPACE = {"agent": {"events.core"}, "control": {"configmaps.core"}}


def granted(role):
    return {(verb, resource.split("/")[0] + "." + (group or "core") + resource[len(resource.split("/")[0]):])
            for rule in role["rules"] for group in rule["apiGroups"] for resource in rule["resources"] for verb in rule["verbs"]}


def documented(title):
    """The rights in the table below a title of doc/permissions.md."""
    text = (HERE.parent.parent / "doc/permissions.md").read_text()
    section = text.split(f"### {title}\n")[1].split("\n#")[0]
    rows = [line.strip("| ").split(" | ") for line in section.splitlines() if line.startswith("| ")][1:]
    return sorted((verb, resource.split("/")[0] + "." + group + resource[len(resource.split("/")[0]):])
                  for group, resources, verbs, *_ in rows
                  for resource in resources.split(", ") for verb in verbs.split(", "))


class Roles(unittest.TestCase):
    def check(self, who):
        documents = objects()
        whole = granted(one(documents, "ClusterRole", f"tessarin-tessarin-{who}"))
        own = granted(one(documents, "Role", f"tessarin-{who}"))
        needed = kube_requests.recorded()[who]
        needed_here = {right for right in needed if right[1] in OWN_NAMESPACE[who]}
        self.assertEqual(sorted(whole), sorted(needed - needed_here))
        self.assertEqual(sorted(own), sorted(needed_here))

    def test_of_the_agent_give_what_it_asks_for(self):
        self.check("agent")

    def test_of_the_control_pod_give_what_the_library_asks_for(self):
        self.check("control")

    def test_are_documented_right_by_right(self):
        documents = objects()
        for who, title in {"agent": "The agent", "control": "The control pod"}.items():
            given = granted(one(documents, "ClusterRole", f"tessarin-tessarin-{who}"))
            given |= granted(one(documents, "Role", f"tessarin-{who}"))
            self.assertEqual(documented(title), sorted(given))

    def test_use_no_wildcard(self):
        for document in objects():
            if document["kind"] in ("ClusterRole", "Role"):
                self.assertNotIn("*", str(document["rules"]))

    def test_give_nobody_the_reading_of_secrets(self):
        for document in objects():
            if document["kind"] in ("ClusterRole", "Role"):
                self.assertNotIn("secrets", str(document["rules"]))


class Rights(unittest.TestCase):
    def test_are_those_that_an_api_server_asks_for(self):
        for request, rights in {
            "GET /version": [],
            "GET /apis/snapshot.storage.k8s.io": [],
            "GET /api/v1/namespaces": [("list", "namespaces.core")],
            "GET /api/v1/namespaces/n": [("get", "namespaces.core")],
            "GET /api/v1/namespaces/n/pods": [("list", "pods.core")],
            "GET /api/v1/namespaces/n/events/": [("list", "events.core")],
            "DELETE /api/v1/namespaces/n/pods/p": [("delete", "pods.core")],
            "PATCH /apis/apps/v1/namespaces/n/deployments/d/scale": [("patch", "deployments.apps/scale")],
            "POST /apis/storage.k8s.io/v1/storageclasses": [("create", "storageclasses.storage.k8s.io")],
            "GET /api/v1/namespaces/n/pods/p/exec": [("get", "pods.core/exec"), ("create", "pods.core/exec")],
        }.items():
            with self.subTest(request):
                self.assertEqual(kube_requests.rights_of(*request.split(" ")), rights)

    def test_of_an_unknown_path_are_not_passed_over(self):
        with self.assertRaises(ValueError):
            kube_requests.rights_of("GET", "/metrics")


if __name__ == "__main__":
    unittest.main()
