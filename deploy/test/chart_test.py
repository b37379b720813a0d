#!/usr/bin/env python3
"""The chart, however it is configured, makes objects that fit each other, the API and the agent."""
import functools
import itertools
import pathlib
import re
import sys
import unittest

import yaml

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
sys.path[:0] = [str(HERE), str(ROOT / "scripts")]
import kube_fields  # noqa: E402
import render_chart  # noqa: E402

SWITCHES = {
    "agent.restore": (True, False),
    "agent.appArmorField": (True, False),
    "control.enabled": (True, False),
    "rbac.create": (True, False),
    "token.secretName": ("", "tokens"),
    "monitoring.enabled": (True, False),
}


def values_of(switches):
    values = {}
    for path, value in switches.items():
        if path == "monitoring.enabled":
            values = render_chart.merged(values, {"monitoring": {"serviceMonitor": {"enabled": value},
                                                                 "prometheusRule": {"enabled": value}}})
        else:
            section, name = path.split(".")
            values = render_chart.merged(values, {section: {name: value}})
    return values


def objects(values=None, **place):
    texts = render_chart.render(values=values, **place)
    documents = [document for name, text in texts.items() if name.endswith(".yaml")
                 for document in yaml.load_all(text, Loader=yaml.CSafeLoader)]
    return [document for document in documents if document]


@functools.lru_cache
def every_configuration():
    """Nobody changes these."""
    choices = [dict(zip(SWITCHES, choice)) for choice in itertools.product(*SWITCHES.values())]
    return [(switches, objects(values_of(switches), release="r1", namespace="ns1")) for switches in choices]


def one(documents, kind, name):
    found = [document for document in documents if document["kind"] == kind and document["metadata"]["name"] == name]
    assert len(found) == 1, f"{len(found)} objects {kind} {name}"
    return found[0]


def pod_of(documents, kind, name):
    return one(documents, kind, name)["spec"]["template"]["spec"]


def container_of(documents, kind, name):
    return pod_of(documents, kind, name)["containers"][0]


def agent(values=None):
    return container_of(objects(values), "DaemonSet", "tessarin-agent")


class Every_Configuration(unittest.TestCase):
    def configurations(self):
        for switches, documents in every_configuration():
            with self.subTest(**switches):
                yield documents

    def test_has_only_members_that_the_api_knows(self):
        for documents in self.configurations():
            self.assertEqual([fault for document in documents for fault in kube_fields.object_faults(document)], [])

    def test_names_each_object_once(self):
        for documents in self.configurations():
            names = [(d["kind"], d["metadata"]["name"]) for d in documents]
            self.assertEqual(len(names), len(set(names)))

    # What bears it is removed by `tessarinctl clean`.
    def test_bears_the_mark_of_temporary_objects_nowhere(self):
        for documents in self.configurations():
            self.assertNotRegex(yaml.safe_dump(documents), r"(?m)^\s*component: tessarin-agent")

    def test_keeps_all_in_its_namespace(self):
        for documents in self.configurations():
            self.assertEqual({d["metadata"].get("namespace", "ns1") for d in documents}, {"ns1"})

    def test_selects_its_own_pods_alone(self):
        for documents in self.configurations():
            sets = [d for d in documents if d["kind"] in ("DaemonSet", "Deployment")]
            for workload in sets:
                selector = workload["spec"]["selector"]["matchLabels"].items()
                matching = [w for w in sets if selector <= w["spec"]["template"]["metadata"]["labels"].items()]
                self.assertEqual(matching, [workload])

    def test_mounts_each_volume_that_it_has_and_no_other(self):
        for documents in self.configurations():
            for workload in (d for d in documents if d["kind"] in ("DaemonSet", "Deployment")):
                pod = workload["spec"]["template"]["spec"]
                mounted = sorted(mount["name"] for mount in pod["containers"][0]["volumeMounts"])
                self.assertEqual(mounted, sorted(volume["name"] for volume in pod["volumes"]))

    def test_refers_to_accounts_and_roles_that_are_there(self):
        for documents in self.configurations():
            there = {(d["kind"], d["metadata"]["name"]) for d in documents}
            for binding in (d for d in documents if d["kind"].endswith("Binding")):
                self.assertIn((binding["roleRef"]["kind"], binding["roleRef"]["name"]), there)
                for subject in binding["subjects"]:
                    self.assertIn(("ServiceAccount", subject["name"]), there)
            for workload in (d for d in documents if d["kind"] in ("DaemonSet", "Deployment")):
                self.assertIn(("ServiceAccount", workload["spec"]["template"]["spec"]["serviceAccountName"]), there)

    def test_gives_no_container_all_rights(self):
        for documents in self.configurations():
            for workload in (d for d in documents if d["kind"] in ("DaemonSet", "Deployment")):
                pod = workload["spec"]["template"]["spec"]
                self.assertEqual(pod["securityContext"]["seccompProfile"], {"type": "RuntimeDefault"})
                self.assertFalse({"hostNetwork", "hostPID", "hostIPC"} & pod.keys())
                security = pod["containers"][0]["securityContext"]
                self.assertFalse(security.get("privileged", False))
                self.assertFalse(security["allowPrivilegeEscalation"])
                self.assertTrue(security["readOnlyRootFilesystem"])
                self.assertEqual(security["capabilities"]["drop"], ["ALL"])


class Agent(unittest.TestCase):
    def test_is_started_with_options_that_it_knows(self):
        source = (ROOT / "src/websvcs/agent_options.cpp").read_text()
        values = {"token": {"secretName": "t"}, "hostKey": {"secretName": "h"},
                  "access": {"tokenAudiences": ["a"], "allowServiceAccounts": ["n/s"]}}
        for argument in agent(values)["args"]:
            self.assertIn(f'"{argument.split("=")[0]}"', source)

    def test_reads_only_where_nothing_is_to_be_restored(self):
        container = agent({"agent": {"restore": False}})
        self.assertEqual(container["securityContext"]["capabilities"]["add"], ["SYS_ADMIN", "DAC_READ_SEARCH"])
        kubelet = [mount for mount in container["volumeMounts"] if mount["name"] == "kubelet"][0]
        self.assertTrue(kubelet["readOnly"])

    # Volumes of pods that start after the agent have to be seen; binds must not reach the node.
    def test_sees_later_mounts_and_shows_none_of_its_own(self):
        propagation = {mount["mountPath"]: mount.get("mountPropagation") for mount in agent()["volumeMounts"]}
        self.assertEqual(propagation.pop("/var/lib/kubelet"), "HostToContainer")
        self.assertEqual(set(propagation.values()), {None})

    def test_has_what_the_library_has_built_in(self):
        paths = {mount["mountPath"] for mount in agent()["volumeMounts"]}
        binds = re.search(r'root_directory\[\] = "([^"]+)"', (ROOT / "src/k8s/api/node_paths.h").read_text())[1]
        self.assertTrue(any(binds.startswith(path + "/") for path in paths), binds)
        pods = re.search(r'"(/[^"%]*)/pods/%s/volumes', (ROOT / "src/k8s/api/k8s_pvc_size.cpp").read_text())[1]
        self.assertIn(pods, paths)

    def test_takes_another_directory_of_the_kubelet_to_the_same_place(self):
        documents = objects({"agent": {"kubeletDirectory": "/opt/kubelet"}})
        volumes = {v["name"]: v for v in pod_of(documents, "DaemonSet", "tessarin-agent")["volumes"]}
        self.assertEqual(volumes["kubelet"]["hostPath"]["path"], "/opt/kubelet")

    def test_keeps_its_secrets_from_others(self):
        documents = objects({"token": {"secretName": "t"}, "hostKey": {"secretName": "h"}})
        secrets = [v["secret"] for v in pod_of(documents, "DaemonSet", "tessarin-agent")["volumes"] if "secret" in v]
        self.assertEqual([(s["secretName"], s["defaultMode"]) for s in secrets],
                         [("tessarin-tls", 0o400), ("t", 0o400), ("h", 0o400)])

    def test_makes_the_secrets_that_it_is_told_to(self):
        documents = objects({"tls": {"create": True, "crt": "C\n", "key": "K", "ca": "A"},
                             "hostKey": {"create": True, "secretName": "h", "pem": "line\nline"}})
        self.assertEqual(one(documents, "Secret", "tessarin-tls")["stringData"],
                         {"tls.crt": "C\n", "tls.key": "K", "ca.crt": "A"})
        self.assertEqual(one(documents, "Secret", "h")["stringData"], {"host.pem": "line\nline"})

    def test_is_probed_over_the_port_that_it_listens_on(self):
        container = agent({"agent": {"port": 9000}})
        self.assertIn("--listen=0.0.0.0:9000", container["args"])
        self.assertEqual(container["ports"], [{"name": "rpc", "containerPort": 9000}])
        for probe in ("startupProbe", "livenessProbe", "readinessProbe"):
            self.assertEqual(container[probe]["httpGet"]["port"], "rpc")

    def test_has_every_variable_that_it_reads(self):
        self.assertEqual(variables_read("websvcs"), {variable["name"] for variable in agent()["env"]})

    def test_admits_the_control_pod_where_there_is_one(self):
        self.assertIn("--allow-service-account=tessarin/tessarin-control", agent()["args"])
        alone = agent({"control": {"enabled": False}, "access": {"allowServiceAccounts": ["n/s"]}})
        self.assertEqual([a for a in alone["args"] if "allow" in a], ["--allow-service-account=n/s"])

    def test_reviews_tokens_only_where_an_account_may_call(self):
        self.assertIn("--token-review", agent()["args"])
        self.assertIn("--token-review", agent({"control": {"enabled": False}, "access": {"allowServiceAccounts": ["n/s"]}})["args"])
        self.assertNotIn("--token-review", agent({"control": {"enabled": False}, "token": {"secretName": "t"}})["args"])


def variables_read(folder):
    sources = "".join(file.read_text() for file in sorted((ROOT / "src" / folder).glob("*.cpp")))
    return set(re.findall(r'get_?env(?:_r)?\("(\w+)"\)', sources))


class Control(unittest.TestCase):
    def test_finds_the_agents_by_their_label_and_port(self):
        documents = objects()
        environment = {e["name"]: e.get("value") for e in container_of(documents, "Deployment", "tessarin-control")["env"]}
        labels = one(documents, "DaemonSet", "tessarin-agent")["spec"]["template"]["metadata"]["labels"]
        self.assertEqual(labels[environment["AUX_KEY"]], environment["AUX_VALUE"])
        own = one(documents, "Deployment", "tessarin-control")["spec"]["template"]["metadata"]["labels"]
        self.assertNotEqual(own[environment["AUX_KEY"]], environment["AUX_VALUE"])
        self.assertEqual(environment["AUX_PORT"], str(agent()["ports"][0]["containerPort"]))

    def test_has_every_variable_that_the_library_reads(self):
        given = {e["name"] for e in container_of(objects(), "Deployment", "tessarin-control")["env"]}
        self.assertEqual(variables_read("k8s/api") | {"TESSARIN_CA", "TESSARIN_AGENT_NAME"}, given)
        self.assertLessEqual(given - variables_read("k8s/api"), variables_read("ctl"))

    def test_sees_of_the_certificate_only_who_signed_it(self):
        volumes = {v["name"]: v for v in pod_of(objects(), "Deployment", "tessarin-control")["volumes"]}
        self.assertEqual(volumes["agents-ca"]["secret"]["items"], [{"key": "ca.crt", "path": "ca.crt"}])
        environment = {e["name"]: e.get("value") for e in container_of(objects(), "Deployment", "tessarin-control")["env"]}
        self.assertEqual(environment["TESSARIN_CA"], "/etc/tessarin/ca.crt")
        self.assertEqual(environment["TESSARIN_AGENT_NAME"], "tessarin-agent.tessarin.svc")

    def test_has_the_storage_classes_where_the_library_looks(self):
        documents = objects({"storageClasses": {"csi": ["gold"]}})
        self.assertEqual(yaml.safe_load(one(documents, "ConfigMap", "tessarin-storage-classes")["data"]["config.json"]),
                         {"csi": ["gold"], "local": [], "nfs": []})
        path = re.search(r'config_path\[\] = "([^"]+)"', (ROOT / "src/k8s/api/k8s_pvc_data_helper.cpp").read_text())[1]
        mounts = {m["name"]: m["mountPath"] for m in container_of(documents, "Deployment", "tessarin-control")["volumeMounts"]}
        self.assertEqual(mounts["storage-classes"] + "/config.json", path)


class Monitoring(unittest.TestCase):
    def objects(self):
        return objects({"monitoring": {"serviceMonitor": {"enabled": True}, "prometheusRule": {"enabled": True}}}, release="r1")

    def test_is_not_asked_for_by_default(self):
        self.assertFalse([d for d in objects() if d["apiVersion"].startswith("monitoring")])

    def test_has_the_alerts_of_those_without_an_operator(self):
        rules = yaml.safe_load((ROOT / "deploy/prometheus-rules.yaml").read_text())
        self.assertEqual(one(self.objects(), "PrometheusRule", "r1-agent")["spec"], rules)

    def test_knows_the_agents_by_the_name_that_the_alerts_use(self):
        endpoint, = one(self.objects(), "ServiceMonitor", "r1-agent")["spec"]["endpoints"]
        job, = [rule["replacement"] for rule in endpoint["relabelings"] if rule["targetLabel"] == "job"]
        self.assertIn(f'job="{job}"', (ROOT / "deploy/prometheus-rules.yaml").read_text())

    def test_asks_by_the_name_of_the_certificate(self):
        endpoint, = one(self.objects(), "ServiceMonitor", "r1-agent")["spec"]["endpoints"]
        self.assertEqual(endpoint["tlsConfig"]["serverName"], "r1-agent.tessarin.svc")
        self.assertEqual(endpoint["tlsConfig"]["ca"]["secret"], {"name": "tessarin-tls", "key": "ca.crt"})


class Network(unittest.TestCase):
    def test_lets_the_control_pod_and_those_named_reach_the_agents(self):
        peer = {"namespaceSelector": {"matchLabels": {"kubernetes.io/metadata.name": "monitoring"}}}
        policy = one(objects({"networkPolicy": {"from": [peer]}}), "NetworkPolicy", "tessarin-agent")["spec"]
        rule, = policy["ingress"]
        self.assertEqual(rule["from"][0]["podSelector"]["matchLabels"]["app.kubernetes.io/component"], "control")
        self.assertEqual(rule["from"][1:], [peer])
        self.assertEqual(rule["ports"], [{"protocol": "TCP", "port": "rpc"}])

    def test_lets_nobody_reach_the_control_pod(self):
        self.assertEqual(one(objects(), "NetworkPolicy", "tessarin-control")["spec"]["ingress"], [])


class Checks(unittest.TestCase):
    """The checks above are worth something only if they find faults."""

    def test_find_a_member_at_the_wrong_place(self):
        documents = objects()
        one(documents, "DaemonSet", "tessarin-agent")["spec"]["template"]["spec"]["readOnlyRootFilesystem"] = True
        faults = [fault for document in documents for fault in kube_fields.object_faults(document)]
        self.assertEqual(faults, ["apps/v1 DaemonSet.spec.template.spec.readOnlyRootFilesystem: there is no such member"])

    def test_find_a_value_of_the_wrong_type(self):
        document = one(objects(), "Service", "tessarin-agent")
        document["spec"]["ports"][0]["port"] = "8443"
        self.assertEqual(kube_fields.object_faults(document), ["v1 Service.spec.ports[0].port: '8443' is no int"])

    def test_refuse_templates_beyond_the_subset(self):
        renderer = render_chart.Renderer({"Values": {"a": 1}})
        for template in ("{{ lookup .Values }}", "{{ .Values.b }}", "{{ .Values.a | upper }}", "{{ with .Values.a }}{{ .Values.a }}{{ end }}",
                         "{{ end }}"):
            with self.subTest(template), self.assertRaises(render_chart.Unsupported):
                renderer.render(template)

    def test_render_as_helm_does(self):
        renderer = render_chart.Renderer({"Values": {"on": True, "list": ["x", "y"], "map": {"b": 1, "a": "t: u"}, "empty": ""}})
        for template, text in {
            "a\n  {{- if .Values.on }}\n  b\n  {{- else }}\n  c\n  {{- end }}\nd": "a\n  b\nd",
            "{{ range .Values.list }}<{{ . }}>{{ end }}": "<x><y>",
            "{{ with .Values.empty }}a{{ else }}b{{ end }}": "b",
            "m:{{ toYaml .Values.map | nindent 2 }}": "m:\n  a: 't: u'\n  b: 1",
            '{{ .Values.empty | default "z" | quote }}': '"z"',
            '{{ define "n" }}[{{ .on }}]{{ end }}{{ include "n" .Values }}': "[true]",
            "{{ if not .Values.on }}{{ if .Values.gone }}{{ end }}a{{ end }}": "",
        }.items():
            with self.subTest(template):
                self.assertEqual(renderer.render(template), text)


class Manifests(unittest.TestCase):
    def test_are_what_the_chart_makes(self):
        self.assertEqual((ROOT / "deploy/manifests/tessarin.yaml").read_text(), render_chart.manifests(),
                         "run scripts/render_chart.py --write-manifests")

    def test_are_in_the_namespace_that_admits_them(self):
        namespace = yaml.safe_load((ROOT / "deploy/manifests/namespace.yaml").read_text())
        self.assertEqual(kube_fields.object_faults(namespace), [])
        self.assertEqual(namespace["metadata"]["name"], "tessarin")


if __name__ == "__main__":
    unittest.main()
