#include "support/kube_sim/controllers.h"

#include <condition_variable>
#include <mutex>
#include <thread>

#include "support/kube_sim/control_plane.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object_Maker;
using json_spirit::Value;

class Controllers::Impl {
 public:
  Impl(Cluster& cluster, const Behaviour& behaviour) : plane_(cluster), behaviour_(behaviour) {
    subscription_ = cluster.subscribe([this](const Change&) { wake(); });
    thread_ = std::thread([this] { run(); });
  }

  ~Impl() {
    plane_.cluster.unsubscribe(subscription_);
    {
      const std::lock_guard<std::mutex> guard(lock_);
      stopping_ = true;
      changed_.notify_all();
    }
    thread_.join();
  }

  void set(const Behaviour& behaviour) {
    const std::lock_guard<std::mutex> guard(lock_);
    behaviour_ = behaviour;
    dirty_ = true;
    changed_.notify_all();
  }

  bool settle(std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, patience, [this] { return !dirty_ && !working_; });
  }

 private:
  void wake() {
    const std::lock_guard<std::mutex> guard(lock_);
    dirty_ = true;
    changed_.notify_all();
  }

  void run() {
    std::unique_lock<std::mutex> guard(lock_);
    while (!stopping_) {
      dirty_ = false;
      working_ = true;
      plane_.behaviour = behaviour_;
      guard.unlock();
      look();
      guard.lock();
      working_ = false;
      changed_.notify_all();
      const auto ready = [this] { return dirty_ || stopping_; };
      if (const auto next = plane_.next())
        changed_.wait_until(guard, *next, ready);
      else
        changed_.wait(guard, ready);
    }
  }

  void look() {
    plane_.begin();
    collect_garbage(plane_);
    control_workloads(plane_);
    control_claims(plane_);
    control_snapshots(plane_);
    control_pods(plane_);
  }

  Control_Plane plane_;  // of the thread, but for the reference to the cluster
  int subscription_ = 0;
  std::thread thread_;

  std::mutex lock_;
  std::condition_variable changed_;
  // These are guarded by lock_.
  Behaviour behaviour_;
  bool dirty_ = true;
  bool working_ = false;
  bool stopping_ = false;
};

Controllers::Controllers(Cluster& cluster, const Behaviour& behaviour)
    : impl_(std::make_unique<Impl>(cluster, behaviour)) {}

Controllers::~Controllers() = default;

void Controllers::set(const Behaviour& behaviour) {
  impl_->set(behaviour);
}

bool Controllers::settle(std::chrono::milliseconds patience) const {
  return impl_->settle(patience);
}

void add_node(Cluster& cluster, const std::string& name) {
  const size_t number = cluster.list("", "nodes").size() + 1;
  const Object_Maker ready = Object_Maker()("type", "Ready")("status", "True")("reason", "KubeletReady")(
      "message", "kubelet is posting ready status")("lastHeartbeatTime", now_text())("lastTransitionTime", now_text());
  const Array addresses = {Object_Maker()("type", "InternalIP")("address", "10.77.0." + std::to_string(number)),
                           Object_Maker()("type", "Hostname")("address", name)};
  const Object_Maker labels = Object_Maker()("kubernetes.io/hostname", name)("kubernetes.io/os", "linux");
  cluster.create(
      "", "nodes",
      Object_Maker()("kind", "Node")("apiVersion", "v1")("metadata", Object_Maker()("name", name)("labels", labels))(
          "status", Object_Maker()("conditions", Array{ready})("addresses", addresses))
          .get_obj());
}

void add_storage_class(Cluster& cluster, const std::string& name, const std::string& provisioner,
                       const std::string& mode, bool is_default) {
  Object_Maker metadata;
  metadata("name", name);
  if (is_default) metadata("annotations", Object_Maker()("storageclass.kubernetes.io/is-default-class", "true"));
  cluster.create("storage.k8s.io", "storageclasses",
                 Object_Maker()("kind", "StorageClass")("apiVersion", "storage.k8s.io/v1")("metadata", metadata)(
                     "provisioner", provisioner)("reclaimPolicy", "Delete")("volumeBindingMode", mode)
                     .get_obj());
}

void add_snapshot_class(Cluster& cluster, const std::string& name, const std::string& driver) {
  cluster.create("snapshot.storage.k8s.io", "volumesnapshotclasses",
                 Object_Maker()("kind", "VolumeSnapshotClass")("apiVersion", "snapshot.storage.k8s.io/v1")(
                     "metadata", Object_Maker()("name", name))("driver", driver)("deletionPolicy", "Delete")
                     .get_obj());
}

}  // namespace kube_sim
