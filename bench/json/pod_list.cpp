#include "pod_list.h"

#include <cstdint>
#include <string_view>

namespace {

// "@" stands for the pod's number, "^" for 32 hexadecimal digits that differ from use to use, "~" for its node.
constexpr std::string_view pod_text =
    R"({"metadata":{"name":"shop-frontend-6d4cf56db6-@","generateName":"shop-frontend-6d4cf56db6-","namespace":"shop-production","uid":"^","resourceVersion":"48@","creationTimestamp":"2024-03-11T08:15:42Z","labels":{"app.kubernetes.io/component":"frontend","app.kubernetes.io/instance":"shop","app.kubernetes.io/managed-by":"Helm","app.kubernetes.io/name":"shop-frontend","pod-template-hash":"6d4cf56db6"},"annotations":{"checksum/config":"^^","prometheus.io/scrape":"true","prometheus.io/port":"9102","kubectl.kubernetes.io/restartedAt":"2024-03-11T08:15:40Z","example.com/notes":"line one\nline two \"quoted\" \u00e9t\u00e9"},"ownerReferences":[{"apiVersion":"apps/v1","kind":"ReplicaSet","name":"shop-frontend-6d4cf56db6","uid":"^","controller":true,"blockOwnerDeletion":true}],"managedFields":[{"manager":"kube-controller-manager","operation":"Update","apiVersion":"v1","time":"2024-03-11T08:15:42Z","fieldsType":"FieldsV1","fieldsV1":{"f:metadata":{"f:annotations":{".":{},"f:checksum/config":{},"f:prometheus.io/port":{},"f:prometheus.io/scrape":{}},"f:generateName":{},"f:labels":{".":{},"f:app.kubernetes.io/component":{},"f:app.kubernetes.io/instance":{},"f:app.kubernetes.io/managed-by":{},"f:app.kubernetes.io/name":{},"f:pod-template-hash":{}},"f:ownerReferences":{".":{},"k:{\"uid\":\"^\"}":{}}},"f:spec":{"f:containers":{"k:{\"name\":\"frontend\"}":{".":{},"f:env":{".":{},"k:{\"name\":\"CACHE_URL\"}":{".":{},"f:name":{},"f:value":{}},"k:{\"name\":\"POD_IP\"}":{".":{},"f:name":{},"f:valueFrom":{".":{},"f:fieldRef":{}}}},"f:image":{},"f:imagePullPolicy":{},"f:livenessProbe":{".":{},"f:failureThreshold":{},"f:httpGet":{".":{},"f:path":{},"f:port":{},"f:scheme":{}},"f:periodSeconds":{},"f:successThreshold":{},"f:timeoutSeconds":{}},"f:name":{},"f:ports":{".":{},"k:{\"containerPort\":8080,\"protocol\":\"TCP\"}":{".":{},"f:containerPort":{},"f:name":{},"f:protocol":{}}},"f:resources":{".":{},"f:limits":{".":{},"f:cpu":{},"f:memory":{}},"f:requests":{".":{},"f:cpu":{},"f:memory":{}}},"f:volumeMounts":{".":{},"k:{\"mountPath\":\"/data\"}":{".":{},"f:mountPath":{},"f:name":{}}}}},"f:dnsPolicy":{},"f:restartPolicy":{},"f:schedulerName":{},"f:terminationGracePeriodSeconds":{},"f:volumes":{".":{},"k:{\"name\":\"data\"}":{".":{},"f:name":{},"f:persistentVolumeClaim":{".":{},"f:claimName":{}}}}}}}]},"spec":{"volumes":[{"name":"data","persistentVolumeClaim":{"claimName":"data-shop-frontend-@"}},{"name":"kube-api-access-@","projected":{"sources":[{"serviceAccountToken":{"expirationSeconds":3607,"path":"token"}},{"configMap":{"name":"kube-root-ca.crt","items":[{"key":"ca.crt","path":"ca.crt"}]}}],"defaultMode":420}}],"containers":[{"name":"frontend","image":"registry.example.com/shop/frontend@sha256:^^","ports":[{"name":"http","containerPort":8080,"protocol":"TCP"}],"env":[{"name":"CACHE_URL","value":"redis://shop-cache.shop-production.svc.cluster.local:6379/0"},{"name":"POD_IP","valueFrom":{"fieldRef":{"apiVersion":"v1","fieldPath":"status.podIP"}}}],"resources":{"limits":{"cpu":"500m","memory":"512Mi"},"requests":{"cpu":"100m","memory":"128Mi"}},"volumeMounts":[{"name":"data","mountPath":"/data"},{"name":"kube-api-access-@","readOnly":true,"mountPath":"/var/run/secrets/kubernetes.io/serviceaccount"}],"livenessProbe":{"httpGet":{"path":"/healthz","port":8080,"scheme":"HTTP"},"timeoutSeconds":1,"periodSeconds":10,"successThreshold":1,"failureThreshold":3},"terminationMessagePath":"/dev/termination-log","terminationMessagePolicy":"File","imagePullPolicy":"IfNotPresent"}],"restartPolicy":"Always","terminationGracePeriodSeconds":30,"dnsPolicy":"ClusterFirst","serviceAccountName":"shop","serviceAccount":"shop","nodeName":"~","securityContext":{},"schedulerName":"default-scheduler","tolerations":[{"key":"node.kubernetes.io/not-ready","operator":"Exists","effect":"NoExecute","tolerationSeconds":300},{"key":"node.kubernetes.io/unreachable","operator":"Exists","effect":"NoExecute","tolerationSeconds":300}],"priority":0,"enableServiceLinks":true,"preemptionPolicy":"PreemptLowerPriority"},"status":{"phase":"Running","conditions":[{"type":"Initialized","status":"True","lastProbeTime":null,"lastTransitionTime":"2024-03-11T08:15:42Z"},{"type":"Ready","status":"True","lastProbeTime":null,"lastTransitionTime":"2024-03-11T08:15:49Z"},{"type":"ContainersReady","status":"True","lastProbeTime":null,"lastTransitionTime":"2024-03-11T08:15:49Z"},{"type":"PodScheduled","status":"True","lastProbeTime":null,"lastTransitionTime":"2024-03-11T08:15:42Z"}],"hostIP":"10.0.12.7","podIP":"10.244.3.17","podIPs":[{"ip":"10.244.3.17"}],"startTime":"2024-03-11T08:15:42Z","containerStatuses":[{"name":"frontend","state":{"running":{"startedAt":"2024-03-11T08:15:44Z"}},"lastState":{},"ready":true,"restartCount":0,"image":"registry.example.com/shop/frontend:2.14.1","imageID":"registry.example.com/shop/frontend@sha256:^^","containerID":"containerd://^^","started":true}],"qosClass":"Burstable"}})";

void append_hex(std::uint64_t& state, std::string& out) {
  for (int i = 0; i < 32; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    out += "0123456789abcdef"[state >> 60];
  }
}

}  // namespace

std::string make_pod_list(std::size_t pods) {
  std::uint64_t state = 1;
  std::string text =
      R"({"kind":"PodList","apiVersion":"v1","metadata":{"resourceVersion":"4812345","continue":"","remainingItemCount":0},"items":[)";
  for (std::size_t pod = 0; pod < pods; ++pod) {
    if (pod != 0) text += ',';
    for (const char c : pod_text) {
      switch (c) {
        case '@':
          text += std::to_string(10000 + pod);
          break;
        case '^':
          append_hex(state, text);
          break;
        case '~':
          text += "worker-" + std::to_string(pod % 50);
          break;
        default:
          text += c;
      }
    }
  }
  return text += "]}";
}

std::string make_backup_request() {
  return R"({"jsonrpc":"2.0","id":"7f1c0a34-5d5e-4b0c-9a55-c1d1e9f7a0b2","method":"k8s.backup","params":{"pool_uuid":"9e3b2f6c-2a4d-4d0e-8a6f-0f5d7c7b1a11","host_uuid":"1b4e28ba-2fa1-11d2-883f-0016d3cca427","minor_resource_id":"pvc-0001","name":"nightly","seq":17,"channel_num":2,"compression":1,"paths":[{"data_path":"/var/lib/kubelet/pods/7c2f/volumes/*/pvc-0001","mount_path":"data-0","name":"data-shop-0"},{"data_path":"/var/lib/kubelet/pods/7c2f/volumes/*/pvc-0002","mount_path":"data-1","name":"data-shop-1"}],"rate":0.75,"full":true,"limits":null}})";
}
