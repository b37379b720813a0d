#!/usr/bin/env python3
"""The manifests on a simulated cluster: they are accepted, an agent comes to each node, and tessarinctl finds it from what
the control pod is given.

    apply_test.py KUBE_SIM TESSARINCTL [unittest arguments]
"""
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
from chart_test import container_of, objects  # noqa: E402

KUBE_SIM, TESSARINCTL = [sys.argv.pop(1) for _ in "12"] if __name__ == "__main__" else (None, None)
MANIFESTS = HERE.parent / "manifests"
NODES = 3

# What the simulated cluster does not know; chart_test.py looks at their members.
NOT_SIMULATED = {"Service", "NetworkPolicy", "ClusterRole", "ClusterRoleBinding", "Role", "RoleBinding"}


@unittest.skipUnless(shutil.which("kubectl"), "no kubectl")
class Applied(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.state = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.state)
        cls.cluster = subprocess.Popen([KUBE_SIM, "--state", cls.state, "--nodes", str(NODES), "--serviceaccount",
                                        cls.state / "account"], stdout=subprocess.PIPE, text=True)
        cls.addClassCleanup(cls.end)
        cls.environment = dict(word.split("=", 1) for word in cls.cluster.stdout.readline().split()[1:])
        cls.kubectl("create", "-f", MANIFESTS / "namespace.yaml")
        documents = [document for document in objects() if document["kind"] not in NOT_SIMULATED]
        cls.kubectl("create", "-f", "-", input=json.dumps({"apiVersion": "v1", "kind": "List", "items": documents}))

    @classmethod
    def end(cls):
        cls.cluster.terminate()
        cls.cluster.wait()
        cls.cluster.stdout.close()

    @classmethod
    def kubectl(cls, *words, **options):
        done = subprocess.run(["kubectl", "--namespace=tessarin", *words], capture_output=True, text=True, check=False,
                              env={**os.environ, **cls.environment, "HOME": str(cls.state)}, **options)
        assert done.returncode == 0, done.stderr
        return done.stdout

    def pods(self, component):
        selector = f"app.kubernetes.io/component={component}"
        return json.loads(self.kubectl("get", "pods", "-o", "json", "-l", selector))["items"]

    def wait_for_pods(self, component, count):
        end = time.monotonic() + 30
        while time.monotonic() < end:
            running = [pod for pod in self.pods(component) if pod["status"].get("phase") == "Running"]
            if len(running) == count:
                return running
            time.sleep(0.1)
        raise AssertionError(self.pods(component))

    def test_an_agent_comes_to_each_node(self):
        nodes = {pod["spec"]["nodeName"] for pod in self.wait_for_pods("agent", NODES)}
        self.assertEqual(len(nodes), NODES)

    def test_one_control_pod_comes_with_the_storage_classes(self):
        pod, = self.wait_for_pods("control", 1)
        names = [volume["configMap"]["name"] for volume in pod["spec"]["volumes"] if "configMap" in volume]
        document = json.loads(self.kubectl("get", "configmap", names[0], "-o", "json"))["data"]["config.json"]
        self.assertEqual(json.loads(document), {"csi": [], "local": [], "nfs": []})

    def tessarinctl(self, *words):
        given = container_of(objects(), "Deployment", "tessarin-control")["env"]
        environment = {e["name"]: e.get("value", "tessarin") for e in given}
        server = f"https://{self.environment['KUBERNETES_SERVICE_HOST']}:{self.environment['KUBERNETES_SERVICE_PORT']}"
        done = subprocess.run([TESSARINCTL, *words, "--server", server, "--token-file", self.state / "account/token",
                               "--ca", self.state / "account/ca.crt"], capture_output=True, text=True, check=False,
                              env={**os.environ, **environment})
        self.assertEqual(done.returncode, 0, done.stderr)
        return json.loads(done.stdout)

    def test_the_control_pod_sees_the_agents(self):
        self.wait_for_pods("agent", NODES)
        self.assertEqual(len(self.tessarinctl("cluster", "aux", "--json")["agents"]), NODES)

    # It removes what bears the label of temporary objects.
    def test_cleaning_the_namespace_leaves_the_agents_alone(self):
        self.wait_for_pods("agent", NODES)
        self.assertEqual(self.tessarinctl("clean", "tessarin", "--dry-run", "--json")["objects"], [])


if __name__ == "__main__":
    unittest.main()
