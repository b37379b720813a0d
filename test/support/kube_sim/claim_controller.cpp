// Claims and volumes.
#include "support/kube_sim/control_plane.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::pextract;
using json_spirit::Value;

namespace {

constexpr char protection[] = "kubernetes.io/pvc-protection";
constexpr char volume_protection[] = "kubernetes.io/pv-protection";
constexpr char component[] = "persistentvolume-controller";

Object_Id claim_id(const Value& claim) {
  return {"", "persistentvolumeclaims", namespace_of(claim), name_of(claim)};
}
Object_Id volume_id(const std::string& name) {
  return {"", "persistentvolumes", "", name};
}

/// Takes a claim in deletion away once no pod uses it.
void release(Control_Plane& plane, const Value& claim) {
  const std::string name = name_of(claim);
  if (plane.claims_in_use().count(namespace_of(claim) + "/" + name) > 0) return;
  if (plane.behaviour.stuck_deletions.count(name) > 0) return;
  plane.cluster.update(claim_id(claim), [](Object& object) { return drop_finalizer(object, protection); });
}

/// Why the source of the claim's data can't be used now; empty when it can, or when there is none.
std::string source_problem(Control_Plane& plane, const Value& claim) {
  const std::string kind = text_at(claim, "/spec/dataSource/kind"), name = text_at(claim, "/spec/dataSource/name");
  const std::string ns = namespace_of(claim), storage_class = text_at(claim, "/spec/storageClassName");
  const std::string failed = "failed to provision volume with StorageClass \"" + storage_class + "\": ";
  const std::string handle = failed + "error getting handle for DataSource Type " + kind + " by Name " + name + ": ";
  if (kind == "PersistentVolumeClaim") {
    if (plane.behaviour.classes_without_clones.count(storage_class) > 0)
      return failed + "rpc error: code = InvalidArgument desc = Volume cloning is not supported by this driver";
    const Document_var source = plane.cluster.get({"", "persistentvolumeclaims", ns, name});
    if (!source) return handle + "error getting PVC " + name + " (namespace \"" + ns + "\") from api server: not found";
    if (text_at(*source, "/status/phase") != "Bound") return handle + "the PVC " + name + " is not bound";
    if (text_at(*source, "/spec/storageClassName") != storage_class)
      return handle + "the source PVC and destination PVCs must be in the same storage class for cloning";
  } else if (kind == "VolumeSnapshot") {
    const Document_var source = plane.cluster.get({"snapshot.storage.k8s.io", "volumesnapshots", ns, name});
    if (!source) return handle + "error getting snapshot " + name + " from api server: not found";
    bool ready = false;
    pextract (*source)("/status/readyToUse", ready);
    if (!ready) return handle + "snapshot " + name + " is not Ready";
  }
  return "";
}

Object volume_for(const Value& claim, const Value& storage_class) {
  const std::string name = "pvc-" + uid_of(claim), provisioner = text_at(storage_class, "/provisioner");
  const std::string reclaim = text_at(storage_class, "/reclaimPolicy");
  Array modes;
  Value size("1Gi");
  pextract(claim)("/spec/accessModes", modes)("/spec/resources/requests/storage", size);
  const Object_Maker reference =
      Object_Maker()("kind", "PersistentVolumeClaim")("namespace", namespace_of(claim))("name", name_of(claim))(
          "uid", uid_of(claim))("apiVersion", "v1")("resourceVersion", text_at(claim, "/metadata/resourceVersion"));
  const Object_Maker attributes = Object_Maker()("csi.storage.k8s.io/pv/name", name)(
      "csi.storage.k8s.io/pvc/name", name_of(claim))("csi.storage.k8s.io/pvc/namespace", namespace_of(claim));
  Object_Maker spec;
  spec("capacity", Object_Maker()("storage", size))("accessModes", modes)("claimRef", reference);
  spec("csi", Object_Maker()("driver", provisioner)("volumeHandle", "volume-" + uid_of(claim))("volumeAttributes",
                                                                                               attributes));
  spec("persistentVolumeReclaimPolicy", reclaim.empty() ? "Delete" : reclaim);
  spec("storageClassName", name_of(storage_class))("volumeMode", "Filesystem");
  const std::string mode = text_at(claim, "/spec/volumeMode");
  if (!mode.empty()) spec("volumeMode", mode);
  Object_Maker metadata;
  metadata("name", name)("annotations", Object_Maker()("pv.kubernetes.io/provisioned-by", provisioner));
  metadata("finalizers", Array{Value("external-provisioner.volume.kubernetes.io/finalizer"), Value(volume_protection)});
  return Object_Maker()("kind", "PersistentVolume")("apiVersion", "v1")("metadata", metadata)("spec", spec)(
             "status", Object_Maker()("phase", "Bound")("lastPhaseTransitionTime", now_text()))
      .get_obj();
}

void mark_bound(Control_Plane& plane, const Value& claim, const Value& volume) {
  Value size;
  Array modes;
  pextract(volume)("/spec/capacity/storage", size)("/spec/accessModes", modes);
  plane.cluster.update(claim_id(claim), [&](Object& object) {
    Object& annotations = object["metadata"].to_object()["annotations"].to_object();
    annotations["pv.kubernetes.io/bind-completed"] = "yes";
    annotations["pv.kubernetes.io/bound-by-controller"] = "yes";
    object["spec"].to_object()["volumeName"] = name_of(volume);
    json_spirit::insert(object["status"].to_object())("phase", "Bound")("accessModes", modes)(
        "capacity", Object_Maker()("storage", size));
    return true;
  });
}

/// Binds a claim to the volume that it names.
void bind_named(Control_Plane& plane, const Value& claim, const std::string& name) {
  const Document_var volume = plane.cluster.get(volume_id(name));
  if (!volume) return;
  const std::string owner = text_at(*volume, "/spec/claimRef/uid");
  if (!owner.empty() && owner != uid_of(claim)) return;
  plane.cluster.update(volume_id(name), [&](Object& object) {
    object["spec"].to_object()["claimRef"] = Object_Maker()("kind", "PersistentVolumeClaim")("apiVersion", "v1")(
        "namespace", namespace_of(claim))("name", name_of(claim))("uid", uid_of(claim));
    object["status"].to_object()["phase"] = "Bound";
    return true;
  });
  mark_bound(plane, claim, *volume);
}

void note_provisioner(Control_Plane& plane, const Value& claim, const std::string& provisioner) {
  plane.cluster.update(claim_id(claim), [&](Object& object) {
    Object& annotations = object["metadata"].to_object()["annotations"].to_object();
    annotations["volume.beta.kubernetes.io/storage-provisioner"] = provisioner;
    annotations["volume.kubernetes.io/storage-provisioner"] = provisioner;
    return true;
  });
  plane.event(claim, "Normal", "ExternalProvisioning",
              "Waiting for a volume to be created either by the external provisioner '" + provisioner +
                  "' or manually by the system administrator. If volume creation is delayed, please verify that the "
                  "provisioner is running and correctly registered.",
              component);
}

void provision(Control_Plane& plane, const Value& claim, const Value& storage_class) {
  const std::string provisioner = text_at(storage_class, "/provisioner");
  note_provisioner(plane, claim, provisioner);
  if (plane.behaviour.stuck_classes.count(name_of(storage_class)) > 0) return;
  plane.event(
      claim, "Normal", "Provisioning",
      "External provisioner is provisioning volume for claim \"" + namespace_of(claim) + "/" + name_of(claim) + "\"",
      provisioner);
  const std::string problem = source_problem(plane, claim);
  if (!problem.empty()) {
    plane.event(claim, "Warning", "ProvisioningFailed", problem, provisioner);
    return;
  }
  if (!plane.due(claim, "bind", plane.behaviour.bind_delay)) return;
  const Object volume = volume_for(claim, storage_class);
  plane.cluster.create("", "persistentvolumes", volume);
  plane.event(claim, "Normal", "ProvisioningSucceeded", "Successfully provisioned volume pvc-" + uid_of(claim),
              provisioner);
  mark_bound(plane, claim, volume);
}

void bind(Control_Plane& plane, const Value& claim) {
  const std::string volume = text_at(claim, "/spec/volumeName");
  if (!volume.empty()) return bind_named(plane, claim, volume);
  const std::string name = text_at(claim, "/spec/storageClassName");
  if (name.empty())
    return plane.event(claim, "Normal", "FailedBinding",
                       "no persistent volumes available for this claim and no storage class is set", component);
  const Document_var storage_class = plane.cluster.get({"storage.k8s.io", "storageclasses", "", name});
  if (!storage_class)
    return plane.event(claim, "Warning", "ProvisioningFailed", "storageclass.storage.k8s.io \"" + name + "\" not found",
                       component);
  const bool waits = text_at(*storage_class, "/volumeBindingMode") == "WaitForFirstConsumer";
  if (waits && plane.claims_in_use().count(namespace_of(claim) + "/" + name_of(claim)) == 0)
    return plane.event(claim, "Normal", "WaitForFirstConsumer",
                       "waiting for first consumer to be created before binding", component);
  if (text_at(*storage_class, "/provisioner") != "kubernetes.io/no-provisioner")
    provision(plane, claim, *storage_class);
}

/// What becomes of a volume whose claim is gone.
void reclaim(Control_Plane& plane, const Value& volume) {
  const std::string name = name_of(volume), claim = text_at(volume, "/spec/claimRef/name");
  if (claim.empty()) {
    if (is_terminating(volume))
      plane.cluster.update(volume_id(name), [](Object& object) { return drop_finalizer(object, volume_protection); });
    return;
  }
  const Document_var owner =
      plane.cluster.get({"", "persistentvolumeclaims", text_at(volume, "/spec/claimRef/namespace"), claim});
  if (owner && (uid_of(*owner) == text_at(volume, "/spec/claimRef/uid") || text_at(*owner, "/spec/volumeName") == name))
    return;
  if (text_at(volume, "/spec/claimRef/uid").empty()) return;  // kept for a claim that is still to come
  if (text_at(volume, "/spec/persistentVolumeReclaimPolicy") == "Delete" || is_terminating(volume)) {
    plane.cluster.remove(volume_id(name));
    plane.cluster.update(volume_id(name), [](Object& object) {
      object["metadata"].to_object().erase("finalizers");
      return true;
    });
  } else if (text_at(volume, "/status/phase") == "Bound") {
    plane.cluster.update(volume_id(name), [](Object& object) {
      object["status"].to_object()["phase"] = "Released";
      return true;
    });
  }
}

}  // namespace

void control_claims(Control_Plane& plane) {
  for (const Document_var& claim : plane.cluster.list("", "persistentvolumeclaims")) {
    if (is_terminating(*claim))
      release(plane, *claim);
    else if (text_at(*claim, "/status/phase") != "Bound")
      bind(plane, *claim);
  }
  for (const Document_var& volume : plane.cluster.list("", "persistentvolumes")) reclaim(plane, *volume);
}

}  // namespace kube_sim
