// Volume snapshots and their contents.
#include <cstdlib>

#include "support/kube_sim/control_plane.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::pextract;
using json_spirit::Value;

namespace {

constexpr char group[] = "snapshot.storage.k8s.io";
constexpr char version[] = "snapshot.storage.k8s.io/v1";
constexpr char component[] = "snapshot-controller";
constexpr char source_protection[] = "snapshot.storage.kubernetes.io/volumesnapshot-as-source-protection";
constexpr char bound_protection[] = "snapshot.storage.kubernetes.io/volumesnapshot-bound-protection";
constexpr char content_protection[] = "snapshot.storage.kubernetes.io/volumesnapshotcontent-bound-protection";
constexpr char default_mark[] = "/metadata/annotations/snapshot.storage.kubernetes.io~1is-default-class";

Object_Id snapshot_id(const Value& snapshot) {
  return {group, "volumesnapshots", namespace_of(snapshot), name_of(snapshot)};
}
Object_Id content_id(const Value& snapshot) {
  return {group, "volumesnapshotcontents", "", "snapcontent-" + uid_of(snapshot)};
}

/// "1Gi" as bytes.
std::int64_t bytes_of(const std::string& quantity) {
  char* unit = nullptr;
  const double number = std::strtod(quantity.c_str(), &unit);
  static const std::map<std::string, double> units = {{"", 1},
                                                      {"k", 1e3},
                                                      {"Ki", 1024.},
                                                      {"M", 1e6},
                                                      {"G", 1e9},
                                                      {"T", 1e12},
                                                      {"Mi", 1024. * 1024},
                                                      {"Gi", 1024. * 1024 * 1024},
                                                      {"Ti", 1024. * 1024 * 1024 * 1024}};
  const auto found = units.find(unit);
  return static_cast<std::int64_t>(number * (found == units.end() ? 1 : found->second));
}

void fail(Control_Plane& plane, const Value& snapshot, const std::string& message) {
  plane.event(snapshot, "Warning", "SnapshotContentCreationFailed", message, component);
  if (text_at(snapshot, "/status/error/message") == message) return;
  plane.cluster.update(snapshot_id(snapshot), [&](Object& object) {
    json_spirit::insert(object["status"].to_object())("readyToUse", false)(
        "error", Object_Maker()("message", message)("time", now_text()));
    return true;
  });
}

Document_var snapshot_class(Control_Plane& plane, const Value& snapshot) {
  const std::string name = text_at(snapshot, "/spec/volumeSnapshotClassName");
  if (!name.empty()) return plane.cluster.get({group, "volumesnapshotclasses", "", name});
  for (const Document_var& candidate : plane.cluster.list(group, "volumesnapshotclasses"))
    if (text_at(*candidate, default_mark) == "true") return candidate;
  return nullptr;
}

Object content_for(const Value& snapshot, const Value& snapshot_class, const Value& volume) {
  const std::string mode = text_at(volume, "/spec/volumeMode");
  const Object_Maker reference = Object_Maker()("apiVersion", version)("kind", "VolumeSnapshot")(
      "name", name_of(snapshot))("namespace", namespace_of(snapshot))("uid", uid_of(snapshot))(
      "resourceVersion", text_at(snapshot, "/metadata/resourceVersion"));
  Object_Maker spec;
  spec("deletionPolicy", text_at(snapshot_class, "/deletionPolicy"))("driver", text_at(snapshot_class, "/driver"));
  spec("source", Object_Maker()("volumeHandle", text_at(volume, "/spec/csi/volumeHandle")))("sourceVolumeMode", mode);
  spec("volumeSnapshotClassName", name_of(snapshot_class))("volumeSnapshotRef", reference);
  const Object_Maker metadata =
      Object_Maker()("name", "snapcontent-" + uid_of(snapshot))("finalizers", Array{Value(content_protection)});
  return Object_Maker()("apiVersion", version)("kind", "VolumeSnapshotContent")("metadata", metadata)("spec", spec)
      .get_obj();
}

/// Makes the content; null, with the failure noted, when that can't be done.
Document_var make_content(Control_Plane& plane, const Value& snapshot) {
  const Document_var kind = snapshot_class(plane, snapshot);
  if (!kind) {
    fail(plane, snapshot, "Failed to create snapshot content with error: the snapshot class is not found");
    return nullptr;
  }
  const std::string name = text_at(snapshot, "/spec/source/persistentVolumeClaimName"), ns = namespace_of(snapshot);
  const Document_var claim = plane.cluster.get({"", "persistentvolumeclaims", ns, name});
  const std::string failed = "Failed to create snapshot content with error snapshot controller failed to update " +
                             name_of(snapshot) + " on API server: ";
  if (!claim) {
    fail(plane, snapshot, failed + "cannot get claim from snapshot");
    return nullptr;
  }
  const Document_var volume = plane.cluster.get({"", "persistentvolumes", "", text_at(*claim, "/spec/volumeName")});
  if (!volume || text_at(*claim, "/status/phase") != "Bound") {
    fail(plane, snapshot,
         failed + "the PVC " + name + " is not yet bound to a PV, will not attempt to take a snapshot");
    return nullptr;
  }
  if (text_at(*volume, "/spec/csi/driver") != text_at(*kind, "/driver")) {
    fail(plane, snapshot, failed + "the driver of the snapshot class is not that of the volume");
    return nullptr;
  }
  plane.event(snapshot, "Normal", "CreatingSnapshot",
              "Waiting for a snapshot " + ns + "/" + name_of(snapshot) + " to be created by the CSI driver.",
              component);
  plane.cluster.create(group, "volumesnapshotcontents", content_for(snapshot, *kind, *volume));
  return plane.cluster.get(content_id(snapshot));
}

void set_bound(Control_Plane& plane, const Value& snapshot) {
  plane.cluster.update(snapshot_id(snapshot), [&](Object& object) {
    add_finalizer(object, source_protection);
    add_finalizer(object, bound_protection);
    Object& status = object["status"].to_object();
    status.erase("error");
    status["boundVolumeSnapshotContentName"] = content_id(snapshot).name;
    status.emplace("readyToUse", false);
    return true;
  });
}

void set_ready(Control_Plane& plane, const Value& snapshot, const Value& content) {
  const std::string handle = text_at(content, "/spec/source/volumeHandle");
  std::string size = "1Gi";
  for (const Document_var& volume : plane.cluster.list("", "persistentvolumes"))
    if (text_at(*volume, "/spec/csi/volumeHandle") == handle) size = text_at(*volume, "/spec/capacity/storage");
  const std::int64_t time = std::chrono::system_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
  plane.cluster.update(content_id(snapshot), [&](Object& object) {
    json_spirit::insert(object["status"].to_object())("creationTime", time)("readyToUse", true)(
        "restoreSize", bytes_of(size))("snapshotHandle", "snapshot-" + uid_of(snapshot));
    return true;
  });
  plane.cluster.update(snapshot_id(snapshot), [&](Object& object) {
    json_spirit::insert(object["status"].to_object())("creationTime", now_text())("readyToUse", true)("restoreSize",
                                                                                                      size);
    return true;
  });
  const std::string name = namespace_of(snapshot) + "/" + name_of(snapshot);
  plane.event(snapshot, "Normal", "SnapshotCreated",
              "Snapshot " + name + " was successfully created by the CSI driver.", component);
  plane.event(snapshot, "Normal", "SnapshotReady", "Snapshot " + name + " is ready to use.", component);
}

void take(Control_Plane& plane, const Value& snapshot) {
  bool ready = false;
  pextract(snapshot)("/status/readyToUse", ready);
  if (ready) return;
  Document_var content = plane.cluster.get(content_id(snapshot));
  if (!content) content = make_content(plane, snapshot);
  if (!content) return;
  set_bound(plane, snapshot);
  if (plane.behaviour.stuck_snapshot_classes.count(text_at(*content, "/spec/volumeSnapshotClassName")) > 0) return;
  if (plane.due(snapshot, "snapshot", plane.behaviour.snapshot_delay)) set_ready(plane, snapshot, *content);
}

void release(Control_Plane& plane, const Value& snapshot) {
  if (plane.behaviour.stuck_deletions.count(name_of(snapshot)) > 0) return;
  const Document_var content = plane.cluster.get(content_id(snapshot));
  if (content && text_at(*content, "/spec/deletionPolicy") != "Retain") {
    plane.cluster.remove(content_id(snapshot));
    plane.cluster.update(content_id(snapshot),
                         [](Object& object) { return drop_finalizer(object, content_protection); });
  }
  plane.cluster.update(snapshot_id(snapshot), [](Object& object) {
    drop_finalizer(object, source_protection);
    return drop_finalizer(object, bound_protection);
  });
}

}  // namespace

void control_snapshots(Control_Plane& plane) {
  for (const Document_var& snapshot : plane.cluster.list(group, "volumesnapshots")) {
    if (is_terminating(*snapshot))
      release(plane, *snapshot);
    else
      take(plane, *snapshot);
  }
}

}  // namespace kube_sim
