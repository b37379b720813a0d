#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_factory.h"

#include "factories.h"
#include "failing_new.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_backup_handler.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_cancel_job_handler.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_get_pvc_size_handler.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_process_handler.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_restore_handler.h"

namespace {

template <typename Handler>
bool is_a(JSON_RPC_Handler* handler) {
  return dynamic_cast<Handler*>(handler) != nullptr;
}

struct Made {
  const char* name;
  JSON_RPC_Handler_Factory make;
  size_t size;
  bool (*is_right)(JSON_RPC_Handler*);
};

#define MADE(Handler) \
  { #Handler, _make_##Handler, sizeof(Handler), is_a < Handler> }

class Factory : public ::testing::TestWithParam<Made> {};

INSTANTIATE_TEST_SUITE_P(Each, Factory,
                         ::testing::Values(Made MADE(JSON_RPC_K8S_Backup_Handler),
                                           Made MADE(JSON_RPC_K8S_Restore_Handler),
                                           Made MADE(JSON_RPC_K8S_Process_Handler),
                                           Made MADE(JSON_RPC_K8S_Cancel_Job_Handler),
                                           Made MADE(JSON_RPC_K8S_Get_PVC_Size_Handler)),
                         [](const auto& info) { return info.param.name; });

TEST_P(Factory, MakesTheHandlerAndHandsBackItsDestroyer) {
  JSON_RPC_Handler_Exterminator gobbler = nullptr;
  JSON_RPC_Handler* handler = GetParam().make(&gobbler);
  ASSERT_NE(nullptr, handler);
  EXPECT_TRUE(GetParam().is_right(handler));
  ASSERT_NE(nullptr, gobbler);
  gobbler(handler);  // a leak checker tells if this does not destroy it
}

TEST_P(Factory, WithoutAPlaceForTheDestroyerStillMakesAHandler) {
  JSON_RPC_Handler* handler = GetParam().make(nullptr);
  EXPECT_TRUE(GetParam().is_right(handler));
  delete handler;
}

TEST_P(Factory, DestroyerGivenNullDoesNothing) {
  JSON_RPC_Handler_Exterminator gobbler = nullptr;
  delete GetParam().make(&gobbler);
  gobbler(nullptr);
}

TEST_P(Factory, WithoutMemoryGivesNullAndTheDestroyerAllTheSame) {
  JSON_RPC_Handler_Exterminator gobbler = nullptr;
  const Failing_New no_memory(GetParam().size);
  errno = 0;
  EXPECT_EQ(nullptr, GetParam().make(&gobbler));
  EXPECT_EQ(ENOMEM, errno);
  EXPECT_NE(nullptr, gobbler);
}

}  // namespace
