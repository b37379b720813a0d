#include "capability_fixture.h"
#include "k8s/api/k8s_utils.h"

/// What makes a client of its own tells that there is none, sends nothing and fails.
namespace {

using json_spirit::Array;
using json_spirit::Value;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace test_support;

Storage_Class_Set found_classes;

struct Operation {
  const char* name;
  const char* source;
  bool (*run)();
};

void PrintTo(const Operation& operation, std::ostream* stream) {
  *stream << operation.name;
}

const Operation operations[] = {
    {"NodeRpcRequest", "k8s_node_rpc",
     [] {
       Value result;
       return k8s::node_rpc_request("n1", "method", {}, result, json_spirit::obj_type);
     }},
    {"CleanEnv", "k8s_clean_env", [] { return k8s::clean_env("shop"); }},
    {"ListPodsInNs", "k8s_used_storage_classes",
     [] {
       Array pods;
       return k8s::list_pods_in_ns(pods, "shop");
     }},
    {"ExtractScsFromWorkload", "k8s_used_storage_classes",
     [] { return k8s::extract_scs_from_workload("shop", "pods", "web", found_classes); }},
    {"GetScFromPvc", "k8s_used_storage_classes", [] { return k8s::get_sc_from_pvc("shop", "data", found_classes); }},
    {"GetSystemStorageClasses", "k8s_system_storage_classes",
     [] { return k8s::get_system_storage_classes(found_classes); }},
    {"NamespaceIsEntryPresent", "k8s_entries", [] { return k8s::is_entry_present("shop", "shop", "namespace"); }},
    {"WorkloadIsEntryPresent", "k8s_entries", [] { return k8s::is_entry_present("web", "shop", "pods"); }},
};

struct No_Client : Capability_Fixture, testing::WithParamInterface<Operation> {};

TEST_P(No_Client, IsToldAndNothingSent) {
  server.no_memory = true;
  found_classes.clear();
  EXPECT_FALSE(GetParam().run());
  EXPECT_THAT(logged(LM_EMERGENCY),
              ElementsAre(std::string("Unexpected error in k8s/api/") + GetParam().source + ".cpp, client is NULL:"));
  EXPECT_THAT(server.requests(), IsEmpty());
  EXPECT_THAT(found_classes, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Of, No_Client, testing::ValuesIn(operations),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
