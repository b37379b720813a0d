#pragma once

#include "json_spirit/dump.h"
#include "k8s/api/k8s_cluster.h"
#include "k8s/api/k8s_storage_class_capability_config.h"
#include "kolt/make_shared_nothrow.h"
#include "storage_server.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"

namespace test_support {

/// A test of the experiment: a small API server, a clock that makes waits pass at once, and the log.
class Capability_Fixture : public testing::Test {
 protected:
  Capability_Fixture() {
    K8S_Cluster::instance()->get_resource_gv("volumesnapshots") = "snapshot.storage.k8s.io/v1";
    K8S_Cluster::instance()->get_resource_gv("volumesnapshotclasses") = "snapshot.storage.k8s.io/v1";
    client = make_shared_nothrow<K8S_Client>();
    setenv("CURRENT_NAMESPACE", "backup", 1);
  }
  ~Capability_Fixture() override {
    unsetenv("CURRENT_NAMESPACE");
    K8S_Cluster::close_instance();
  }

  /// The lines of @a priority with legible names; of those at LM_EMERGENCY the first line, without its line number.
  std::vector<std::string> logged(ACE_Log_Priority priority) const {
    std::vector<std::string> result;
    for (std::string text : log.texts(priority)) {
      if (priority == LM_EMERGENCY) {
        text.erase(text.find('\n'));
        const std::size_t colon = text.find(':');
        text.erase(colon, text.find(',', colon) - colon);
      }
      result.push_back(server.legible(text));
    }
    return result;
  }
  long slept_sec() const {
    std::chrono::milliseconds sum(0);
    for (const auto span : clock.sleeps()) sum += span;
    return std::chrono::duration_cast<std::chrono::seconds>(sum).count();
  }

  Fake_Clock clock;
  Log_Capture log;
  Storage_Server server;
  K8S_Client_var client;
};

inline const std::string classes = "/apis/storage.k8s.io/v1/storageclasses";
inline const std::string claims = "/api/v1/namespaces/backup/persistentvolumeclaims";
inline const std::string snapshots = "/apis/snapshot.storage.k8s.io/v1/namespaces/backup/volumesnapshots";
inline const std::string config_maps = "/api/v1/namespaces/backup/configmaps/";
inline const std::string config_map = config_maps + "sc-capability-config";

}  // namespace test_support
