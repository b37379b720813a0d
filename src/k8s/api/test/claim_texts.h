#pragma once

#include <string>

namespace test_support {

/// A bound claim as the API returns it.
inline const char claim_text[] = R"({
  "kind": "PersistentVolumeClaim", "apiVersion": "v1",
  "metadata": {"name": "Data", "namespace": "ns", "uid": "u", "resourceVersion": "7", "creationTimestamp": "t",
               "labels": {"app": "db"}, "annotations": {"pv.kubernetes.io/bind-completed": "yes"},
               "finalizers": ["kubernetes.io/pvc-protection"], "ownerReferences": [{"name": "o"}]},
  "spec": {"accessModes": ["ReadWriteOnce"], "volumeName": "v", "storageClassName": "fast", "volumeMode": "Filesystem",
           "resources": {"requests": {"storage": "1Gi"}, "limits": {"storage": "2Gi"}},
           "selector": {"matchLabels": {"a": "b"}}, "dataSource": {"kind": "VolumeSnapshot", "name": "old"}},
  "status": {"phase": "Bound"}})";

inline const char claims_url[] = "/api/v1/namespaces/ns/persistentvolumeclaims";
inline const char get_claim[] = "GET /api/v1/namespaces/ns/persistentvolumeclaims/Data";
inline const char post_claim[] = "POST /api/v1/namespaces/ns/persistentvolumeclaims";
inline const char get_volume[] = "GET /api/v1/persistentvolumes/v";

}  // namespace test_support
