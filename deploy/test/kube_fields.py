"""The members that objects of the kinds in the chart may have, as far as the chart uses them: a name that is misspelt or
stands at the wrong place is not among them, and an API server would drop it silently or refuse it.

A schema is a dict of members, a list with the schema of its elements, a type, a tuple of allowed values, or ANY.
Members that end in "!" must be there.
"""

ANY = object()
MAP = {"*": str}
NAME = str
LABELS = {"*": str}

METADATA = {"name!": NAME, "namespace": NAME, "labels": LABELS, "annotations": LABELS}
SELECTOR = {"matchLabels!": LABELS}
RESOURCES = {"requests": {"cpu": ANY, "memory": ANY}, "limits": {"cpu": ANY, "memory": ANY}}
PROBE = {"httpGet!": {"path!": str, "port!": ANY, "scheme": ("HTTP", "HTTPS")}, "periodSeconds": int, "timeoutSeconds": int,
         "failureThreshold": int, "initialDelaySeconds": int, "successThreshold": int}
SECCOMP = {"type!": ("RuntimeDefault",)}
POD_SECURITY = {"runAsNonRoot": bool, "runAsUser": int, "runAsGroup": int, "seccompProfile": SECCOMP,
                "appArmorProfile": {"type!": ("Unconfined", "RuntimeDefault")}, "seLinuxOptions": {"type": str, "level": str}}
CAPABILITIES = {"drop": [("ALL",)], "add": [("SYS_ADMIN", "DAC_READ_SEARCH", "DAC_OVERRIDE", "CHOWN", "FOWNER", "FSETID", "MKNOD",
                                             "SETFCAP")]}
CONTAINER_SECURITY = {"runAsUser": int, "runAsGroup": int, "privileged": bool, "allowPrivilegeEscalation": bool,
                      "readOnlyRootFilesystem": bool, "capabilities": CAPABILITIES}
MOUNT = {"name!": NAME, "mountPath!": str, "readOnly": bool, "subPath": str,
         "mountPropagation": ("None", "HostToContainer", "Bidirectional")}
VOLUME = {"name!": NAME, "hostPath": {"path!": str, "type": ("Directory", "DirectoryOrCreate")},
          "emptyDir": {"medium": ("Memory",), "sizeLimit": ANY}, "configMap": {"name!": NAME},
          "secret": {"secretName!": NAME, "defaultMode": int, "items": [{"key!": str, "path!": str}]}, "nfs": {"server!": str, "path!": str, "readOnly": bool},
          "persistentVolumeClaim": {"claimName!": NAME, "readOnly": bool}}
ENV = {"name!": NAME, "value": str, "valueFrom": {"fieldRef!": {"fieldPath!": (
    "metadata.name", "metadata.namespace", "metadata.uid", "spec.nodeName")}}}
CONTAINER = {"name!": NAME, "image!": str, "imagePullPolicy": ("Always", "IfNotPresent", "Never"), "command": [str],
             "args": [str], "env": [ENV], "ports": [{"name": str, "containerPort!": int, "protocol": ("TCP",)}],
             "startupProbe": PROBE, "livenessProbe": PROBE, "readinessProbe": PROBE, "resources": RESOURCES,
             "securityContext": CONTAINER_SECURITY, "volumeMounts": [MOUNT]}
TOLERATION = {"key": str, "operator": ("Exists", "Equal"), "value": str, "effect": str}
POD = {"serviceAccountName": NAME, "automountServiceAccountToken": bool, "enableServiceLinks": bool,
       "imagePullSecrets": [{"name!": NAME}], "priorityClassName": str, "nodeSelector": LABELS, "tolerations": [TOLERATION],
       "terminationGracePeriodSeconds": int, "securityContext": POD_SECURITY, "containers!": [CONTAINER],
       "volumes": [VOLUME]}
TEMPLATE = {"metadata!": {"labels!": LABELS, "annotations": LABELS}, "spec!": POD}
RULE = {"apiGroups!": [str], "resources!": [str], "verbs!": [("get", "list", "watch", "create", "patch", "delete")],
        "resourceNames": [str]}
ROLE_REF = {"apiGroup!": ("rbac.authorization.k8s.io",), "kind!": ("ClusterRole", "Role"), "name!": NAME}
SUBJECT = {"kind!": ("ServiceAccount",), "name!": NAME, "namespace!": NAME}
PEER = {"podSelector": {"matchLabels": LABELS}, "namespaceSelector": {"matchLabels": LABELS}, "ipBlock": {"cidr!": str}}

# By API version and kind; without apiVersion, kind and metadata, which all have.
KINDS = {
    "v1 Namespace": {},
    "v1 ServiceAccount": {"automountServiceAccountToken": bool},
    "v1 ConfigMap": {"data": MAP},
    "v1 Secret": {"type": ("Opaque", "kubernetes.io/tls"), "stringData": MAP},
    "v1 Service": {"spec!": {"clusterIP": str, "publishNotReadyAddresses": bool, "selector!": LABELS,
                             "ports!": [{"name!": str, "port!": int, "targetPort": ANY, "protocol": ("TCP",)}]}},
    "apps/v1 DaemonSet": {"spec!": {
        "selector!": SELECTOR, "template!": TEMPLATE,
        "updateStrategy": {"type!": ("RollingUpdate", "OnDelete"), "rollingUpdate": {"maxUnavailable": ANY, "maxSurge": ANY}}}},
    "apps/v1 Deployment": {"spec!": {"replicas": int, "selector!": SELECTOR, "template!": TEMPLATE}},
    "rbac.authorization.k8s.io/v1 ClusterRole": {"rules!": [RULE]},
    "rbac.authorization.k8s.io/v1 Role": {"rules!": [RULE]},
    "rbac.authorization.k8s.io/v1 ClusterRoleBinding": {"roleRef!": ROLE_REF, "subjects!": [SUBJECT]},
    "rbac.authorization.k8s.io/v1 RoleBinding": {"roleRef!": ROLE_REF, "subjects!": [SUBJECT]},
    "networking.k8s.io/v1 NetworkPolicy": {"spec!": {
        "podSelector!": {"matchLabels!": LABELS}, "policyTypes!": [("Ingress", "Egress")],
        "ingress": [{"from": [PEER], "ports": [{"protocol": ("TCP",), "port!": ANY}]}]}},
    "monitoring.coreos.com/v1 ServiceMonitor": {"spec!": {
        "selector!": SELECTOR,
        "endpoints!": [{"port!": str, "path": str, "scheme": ("http", "https"), "interval": str,
                        "tlsConfig": {"serverName": str, "ca": {"secret!": {"name!": NAME, "key!": str}}},
                        "authorization": {"credentials!": {"name!": NAME, "key!": str}},
                        "relabelings": [{"targetLabel!": str, "replacement!": str}]}]}},
    "monitoring.coreos.com/v1 PrometheusRule": {"spec!": {"groups!": [{"name!": str, "rules!": [
        {"alert!": str, "expr!": str, "for": str, "labels": LABELS, "annotations": LABELS}]}]}},
}
CLUSTER_WIDE = {"Namespace", "ClusterRole", "ClusterRoleBinding"}


def faults_of(value, schema, place=""):
    """What is wrong with a value, one text a fault."""
    if schema is ANY:
        return []
    if isinstance(schema, tuple):
        return [] if value in schema else [f"{place}: {value!r} is none of {schema}"]
    if isinstance(schema, list):
        if not isinstance(value, list):
            return [f"{place}: is no list"]
        return [fault for i, item in enumerate(value) for fault in faults_of(item, schema[0], f"{place}[{i}]")]
    if isinstance(schema, type):
        return [] if type(value) is schema else [f"{place}: {value!r} is no {schema.__name__}"]
    if not isinstance(value, dict):
        return [f"{place}: is no object"]
    found = [f"{place}.{name[:-1]} is missing" for name in schema if name.endswith("!") and name[:-1] not in value]
    for name, item in value.items():
        known = schema.get(name, schema.get(name + "!", schema.get("*")))
        found += [f"{place}.{name}: there is no such member"] if known is None else faults_of(item, known, f"{place}.{name}")
    return found


def object_faults(document):
    kind = f"{document.get('apiVersion')} {document.get('kind')}"
    if kind not in KINDS:
        return [f"{kind}: not a kind that is known here"]
    metadata = document.get("metadata", {})
    found = faults_of(document, {"apiVersion!": str, "kind!": str, "metadata!": METADATA, **KINDS[kind]}, kind)
    if ("namespace" in metadata) == (document["kind"] in CLUSTER_WIDE):
        found.append(f"{kind} {metadata.get('name')}: the namespace is missing or too much")
    return found
