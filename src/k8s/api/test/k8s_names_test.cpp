#include <cstdlib>

#include "json_spirit/dump.h"
#include "k8s/api/k8s_utils.h"
#include "support/log_capture.h"

namespace {

using json_spirit::Array;
using json_spirit::JSON_Dump;
using json_spirit::Object;
using json_spirit::Value;
using test_support::Log_Capture;

TEST(NameTables, HoldTheirTextsInOrderWithTheirLengthsAndEndInTheUnknownKind) {
  const auto texts = [](const auto& table) {
    std::vector<std::string> result;
    for (const auto& row : table) {
      EXPECT_EQ(row.len, row.key ? std::strlen(row.key) : 0u);
      result.push_back(row.key ? std::to_string(row.value) + " " + row.key : std::to_string(row.value));
    }
    return result;
  };
  using testing::ElementsAre;
  EXPECT_THAT(texts(k8s::workload_type_name_table), ElementsAre("1 cronjobs", "2 deployments", "3 daemonsets", "4 jobs",
                                                                "5 pods", "6 replicasets", "7 statefulsets", "8"));
  EXPECT_THAT(texts(k8s::pvc_backup_type_name_table),
              ElementsAre("1 clone", "2 snapshot", "3 snapshot_backup", "4 auto", "5"));
  EXPECT_THAT(texts(k8s::api_group_type_name_table), ElementsAre("1 snapshot.storage.k8s.io", "2"));
  EXPECT_THAT(texts(k8s::check_status_name_table), ElementsAre("1 start", "2 running", "3 completed", "4 error", "5"));
}

TEST(NameTables, KindsAre32BitNumbersWithFixedValues) {
  EXPECT_EQ(sizeof(K8S_Workload_Type), 4u);
  EXPECT_EQ(sizeof(K8S_PVC_Backup_Type), 4u);
  EXPECT_EQ(sizeof(K8S_API_Group_Type), 4u);
  EXPECT_EQ(sizeof(Check_Status), 4u);
  EXPECT_EQ(sizeof(Storage_Class_Type), 4u);
  EXPECT_EQ(sizeof(Capability_Flag), 4u);
  EXPECT_THAT((std::vector<int>{SC_TYPE_UNKNOWN, SC_TYPE_LOCAL, SC_TYPE_CSI, SC_TYPE_NFS}),
              testing::ElementsAre(-1, 0, 1, 2));
  EXPECT_THAT((std::vector<int>{CAPABILITY_NONE, CAPABILITY_CLONE, CAPABILITY_SNAP, CAPABILITY_ALL}),
              testing::ElementsAre(0, 1, 2, 3));
}

TEST(NameTables, BoundsOfWaits) {
  EXPECT_EQ(K8S_QVX_RETRY_TIMES, 100);
  EXPECT_EQ(K8S_QVX_RETRY_TIMEOUT, 600);
  EXPECT_EQ(K8S_TOKEN_EXPIRED_INTERVAL, 60);
  EXPECT_EQ(K8S_UPDATE_CONFIG_RETRY_TIMEOUT, 180);
}

const Key2_Value_T<int> table[] = {{"a", 1, 10}, {"b", 1, 20}, {"b", 1, 30}, {"c", 1, 20}, {nullptr, 0, -1}};

TEST(KeyValueEntry, IsTheFirstRowWithTheText) {
  EXPECT_EQ(get_key_value_entry(table, "b"), &table[1]);
}

TEST(KeyValueEntry, IsTheFirstRowWithTheValue) {
  EXPECT_EQ(get_key_value_entry(table, 20), &table[1]);
}

TEST(KeyValueEntry, IsTheTerminatingRowForEveryMiss) {
  const char* none = nullptr;
  EXPECT_EQ(get_key_value_entry(table, none), &table[4]);
  EXPECT_EQ(get_key_value_entry(table, ""), &table[4]);
  EXPECT_EQ(get_key_value_entry(table, "A"), &table[4]);
  EXPECT_EQ(get_key_value_entry(table, 99), &table[4]);
  EXPECT_EQ(get_key_value_entry(table, -1), &table[4]);
}

TEST(KeyValueEntry, OfATableWithoutRowsIsItsTerminatingRow) {
  const Key2_Value_T<int> empty[] = {{nullptr, 0, 7}};
  EXPECT_EQ(get_key_value_entry(empty, "a"), empty);
  EXPECT_EQ(get_key_value_entry(empty, 7), empty);
}

TEST(WorkloadName, LeadsFromKindToTextAndBack) {
  for (int i = CRONJOB_WORKLOAD; i < UNKNOWN_WORKLOAD; ++i) {
    const auto type = static_cast<K8S_Workload_Type>(i);
    EXPECT_EQ(k8s::get_workload_type(k8s::get_workload_name(type)), type);
  }
  EXPECT_EQ(k8s::get_workload_type("pods"), POD_WORKLOAD);
}

TEST(WorkloadName, IsNullForAKindWithoutARow) {
  EXPECT_EQ(k8s::get_workload_name(UNKNOWN_WORKLOAD), nullptr);
  EXPECT_EQ(k8s::get_workload_name(static_cast<K8S_Workload_Type>(0)), nullptr);
  EXPECT_EQ(k8s::get_workload_name(static_cast<K8S_Workload_Type>(99)), nullptr);
}

TEST(WorkloadType, IsUnknownForATextWithoutARow) {
  for (const char* text : {"Pods", "Pod", "pod", "", static_cast<const char*>(nullptr)})
    EXPECT_EQ(k8s::get_workload_type(text), UNKNOWN_WORKLOAD);
}

TEST(PvcBackupTypeName, LeadsFromKindToTextAndBack) {
  for (int i = CLONE; i < UNKNOWN_TYPE; ++i) {
    const auto type = static_cast<K8S_PVC_Backup_Type>(i);
    EXPECT_EQ(k8s::get_pvc_backup_type(k8s::get_pvc_backup_type_name(type)), type);
  }
  EXPECT_EQ(k8s::get_pvc_backup_type_name(UNKNOWN_TYPE), nullptr);
  for (const char* text : {"CLONE", "clones", "", static_cast<const char*>(nullptr)})
    EXPECT_EQ(k8s::get_pvc_backup_type(text), UNKNOWN_TYPE);
}

TEST(ApiGroupTypeName, LeadsFromKindToTextAndBack) {
  EXPECT_EQ(k8s::get_api_group_type("snapshot.storage.k8s.io"), SNAPSHOT_STORAGE_K8S_IO);
  EXPECT_STREQ(k8s::get_api_group_type_name(SNAPSHOT_STORAGE_K8S_IO), "snapshot.storage.k8s.io");
  EXPECT_EQ(k8s::get_api_group_type_name(UNKNOWN_GROUP), nullptr);
  for (const char* text : {"storage.k8s.io", "", static_cast<const char*>(nullptr)})
    EXPECT_EQ(k8s::get_api_group_type(text), UNKNOWN_GROUP);
}

TEST(CheckStatusName, LeadsFromKindToTextAndBack) {
  for (int i = START; i < UNKNOWN; ++i) {
    const auto status = static_cast<Check_Status>(i);
    EXPECT_EQ(k8s::get_check_status_type(k8s::get_check_status_name(status)), status);
  }
  EXPECT_EQ(k8s::get_check_status_name(UNKNOWN), nullptr);
  for (const char* text : {"Start", "done", "", static_cast<const char*>(nullptr)})
    EXPECT_EQ(k8s::get_check_status_type(text), UNKNOWN);
}

TEST(KindToResource, IsThePluralInLowerCase) {
  const std::pair<const char*, const char*> cases[] = {
      {"Deployment", "deployments"},
      {"Pod", "pods"},
      {"StorageClass", "storageclasses"},
      {"NetworkPolicy", "networkpolicies"},
      {"Endpoints", "endpoints"},
      {"Class", "classes"},
      {"Status", "status"},
      {"Policy", "policies"},
      {"ss", "sses"},
      {"as", "as"},
  };
  for (const auto& [kind, resource] : cases) EXPECT_EQ(k8s::kind_to_resource(kind), resource);
}

TEST(KindToResource, LeavesATextOfAtMostOneCharacterAsItIs) {
  EXPECT_EQ(k8s::kind_to_resource(""), "");
  EXPECT_EQ(k8s::kind_to_resource("S"), "S");
  EXPECT_EQ(k8s::kind_to_resource("y"), "y");
}

TEST(KindToResource, LooksAtTheLastCharacterBeforeItFoldsCase) {
  EXPECT_EQ(k8s::kind_to_resource("STATUS"), "statuss");
  EXPECT_EQ(k8s::kind_to_resource("POLICY"), "policys");
  EXPECT_EQ(k8s::kind_to_resource("CLASs"), "class");  // "S" is no "s" either
}

TEST(RandomString, HasOnlyLowerCaseLetters) {
  EXPECT_EQ(k8s::generate_random_string(0), "");
  const std::string text = k8s::generate_random_string(2000);
  EXPECT_EQ(text.size(), 2000u);
  EXPECT_EQ(text.find_first_not_of("abcdefghijklmnopqrstuvwxyz"), std::string::npos);
  EXPECT_NE(k8s::generate_random_string(16), k8s::generate_random_string(16));
}

TEST(ResourceName, IsBothWordsInLowerCase) {
  EXPECT_EQ(k8s::generate_resource_name("My-PVC", "Clone"), "my-pvc-clone");
  EXPECT_EQ(k8s::generate_resource_name("", ""), "-");
}

TEST(ResourceName, IsNotShortened) {
  const std::string origin(300, 'a');
  EXPECT_EQ(k8s::generate_resource_name(origin, "snap"), origin + "-snap");
}

TEST(Label, IsOnePair) {
  EXPECT_EQ(k8s::label(), (query_map_type{{"component", "tessarin-agent"}}));
}

TEST(Selector, AsksForTheLabel) {
  const query_selectors selector = k8s::selector();
  ASSERT_EQ(selector.size(), 1u);
  EXPECT_EQ(selector[0].type, "labelSelector");
  EXPECT_EQ(selector[0].value, k8s::label());
}

struct TemplatePod : testing::Test {
  ~TemplatePod() override { unsetenv("POD_IMAGE"); }

  /// The document with its random names taken out, and checked.
  std::string without_names(Object pod) {
    const auto take_name = [](Object& object) {
      std::string name = std::move(object["name"].get_str());
      EXPECT_EQ(name.size(), 16u);
      EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyz"), std::string::npos);
      object.erase("name");
      return name;
    };
    const std::string pod_name = take_name(pod["metadata"].get_obj());
    EXPECT_NE(take_name(pod["spec"].get_obj()["containers"].get_array().at(0).get_obj()), pod_name);
    return JSON_Dump(pod, false).str();
  }
};

TEST_F(TemplatePod, HasOneContainerOfTheAgentsImageAndNoVolumes) {
  setenv("POD_IMAGE", "registry/agent:1", 1);
  Object pod;
  ASSERT_TRUE(k8s::set_template_pod(pod));
  EXPECT_EQ(without_names(pod),
            R"({"apiVersion":"v1","kind":"Pod",)"
            R"("metadata":{"labels":{"component":"tessarin-agent"},"namespace":""},)"
            R"("spec":{"containers":[{"image":"registry/agent:1","imagePullPolicy":"IfNotPresent",)"
            R"("resources":{"limits":{"cpu":"100m","memory":"100Mi"},"requests":{"cpu":"100m","memory":"100Mi"}},)"
            R"("volumeMounts":[]}],"volumes":[]}})");
}

TEST_F(TemplatePod, ReplacesWhatStoodUnderItsKeysAndKeepsTheRest) {
  setenv("POD_IMAGE", "", 1);  // an empty image is the caller's to know about
  Object pod = {{"kind", "Service"}, {"spec", Object{{"nodeName", "n"}}}, {"status", "kept"}};
  ASSERT_TRUE(k8s::set_template_pod(pod));
  EXPECT_EQ(pod["kind"].get_str(), "Pod");
  EXPECT_EQ(pod["spec"].get_obj().count("nodeName"), 0u);
  EXPECT_EQ(pod["status"].get_str(), "kept");
  EXPECT_EQ(pod["spec"].get_obj()["containers"].get_array().at(0).get_obj()["image"].get_str(), "");
}

TEST_F(TemplatePod, HasNewNamesEachTime) {
  setenv("POD_IMAGE", "image", 1);
  Object first, second;
  ASSERT_TRUE(k8s::set_template_pod(first));
  ASSERT_TRUE(k8s::set_template_pod(second));
  EXPECT_NE(first["metadata"].get_obj()["name"].get_str(), second["metadata"].get_obj()["name"].get_str());
  const auto container_name = [](Object& pod) {
    return pod["spec"].get_obj()["containers"].get_array().at(0).get_obj()["name"].get_str();
  };
  EXPECT_NE(container_name(first), container_name(second));
}

TEST_F(TemplatePod, IsRefusedWithoutAnImage) {
  unsetenv("POD_IMAGE");
  Object pod = {{"kind", "kept"}};
  Log_Capture log;
  EXPECT_FALSE(k8s::set_template_pod(pod));
  EXPECT_THAT(log.texts(LM_ERROR), testing::ElementsAre("Failed to get env value POD_IMAGE.\n"));
  EXPECT_EQ(JSON_Dump(pod, false).str(), R"({"kind":"kept"})");
}

}  // namespace
