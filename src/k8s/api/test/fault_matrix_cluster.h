#pragma once

#include <gtest/gtest.h>

#include "fault_matrix_operations.h"
#include "kolt/string_sprintf.h"
#include "support/kube_sim/cluster.h"
#include "support/scripted_session.h"

namespace test_support {

/// The API of a simulated cluster that is made anew for each run. A claim named "late" gets bound at its third read.
class Fresh_Cluster : public kube_sim::Api {
 public:
  void make() {
    late_reads_ = 0;
    cluster_ = std::make_unique<kube_sim::Cluster>();
    const auto create = [this](const char* group, const char* resource, const char* text) {
      EXPECT_TRUE(cluster_->create(group, resource, json(text).get_obj())) << text;
    };
    create("", "namespaces", R"({"kind":"Namespace","apiVersion":"v1","metadata":{"name":"shop"}})");
    create("", "persistentvolumeclaims", matrix_claim);
    create("", "persistentvolumeclaims",
           R"({"kind":"PersistentVolumeClaim","apiVersion":"v1","metadata":{"name":"late","namespace":"shop"},
               "spec":{},"status":{"phase":"Pending"}})");
    create("", "persistentvolumes",
           R"({"kind":"PersistentVolume","apiVersion":"v1","metadata":{"name":"pv-data"},
               "spec":{"csi":{"driver":"csi.example.com","volumeHandle":"h"}}})");
    create("", "pods", R"({"kind":"Pod","apiVersion":"v1","metadata":{"name":"p","namespace":"shop",
               "labels":{"app":"aux"}},"spec":{"nodeName":"n1"},"status":{"phase":"Running"}})");
    create("storage.k8s.io", "storageclasses",
           R"({"kind":"StorageClass","apiVersion":"storage.k8s.io/v1","metadata":{"name":"fast"},
               "provisioner":"csi.example.com","volumeBindingMode":"WaitForFirstConsumer"})");
    create("snapshot.storage.k8s.io", "volumesnapshotclasses",
           R"({"kind":"VolumeSnapshotClass","apiVersion":"snapshot.storage.k8s.io/v1","metadata":{"name":"c"},
               "driver":"csi.example.com","deletionPolicy":"Delete"})");
    for (const char* name : {"left-1", "left-2"})
      create("snapshot.storage.k8s.io", "volumesnapshots",
             string_sprintf(R"({"kind":"VolumeSnapshot","apiVersion":"snapshot.storage.k8s.io/v1","spec":{},
                 "metadata":{"name":"%s","namespace":"shop","labels":{"component":"tessarin-agent"}}})",
                            name)
                 .c_str());
  }

  kube_sim::Answer answer(const kube_sim::Request& request) override {
    if (request.path == "/api/v1/namespaces/shop/persistentvolumeclaims/late" && ++late_reads_ == 3)
      cluster_->update({"", "persistentvolumeclaims", "shop", "late"}, [](json_spirit::Object& claim) {
        claim["status"].get_obj()["phase"] = "Bound";
        return true;
      });
    return cluster_->answer(request);
  }

 private:
  std::unique_ptr<kube_sim::Cluster> cluster_;
  int late_reads_ = 0;
};

}  // namespace test_support
