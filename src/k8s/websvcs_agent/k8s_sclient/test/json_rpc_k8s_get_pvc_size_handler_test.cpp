#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_get_pvc_size_handler.h"

#include "failing_new.h"
#include "json_rpc/json_rpc_thread_pool.h"
#include "json_text.h"
#include "recorded_channel.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using test_support::Log_Capture;
using test_support::Temp_Dir;

class Get_PVC_Size_Handler : public ::testing::Test {
 protected:
  Get_PVC_Size_Handler() {
    dir.write("vol-1/a", std::string(10, 'a'));
    dir.write("vol-1/sub/b", std::string(32, 'b'));
    dir.write("vol-2/a", std::string(500, 'a'));
  }
  ~Get_PVC_Size_Handler() override { EXPECT_EQ("", log.all()); }

  int ask(const std::string& params) {
    JSON_RPC_Request request;
    request.id(json_spirit::Value(7));
    request.params() = json(params);
    return handler.handle_request(&requester.channel(), request);
  }
  int ask_path(const std::string& path) { return ask(R"({"path":")" + path + "\"}"); }

  Log_Capture log;
  Temp_Dir dir;
  Requester requester;
  JSON_RPC_K8S_Get_PVC_Size_Handler handler;
};

TEST_F(Get_PVC_Size_Handler, GivesTheBytesBelowTheDirectory) {
  EXPECT_EQ(requester.channel().send_result, ask_path(dir / "vol-1"));
  EXPECT_EQ(R"({"size":42})", requester.result());
}

TEST_F(Get_PVC_Size_Handler, OfTwoMatchesTheFirstInSortedOrderIsMeasured) {
  ask_path(dir / "vol-*");
  EXPECT_EQ(R"({"size":42})", requester.result());
}

TEST_F(Get_PVC_Size_Handler, EmptyDirectoryHasSizeZero) {
  fs::create_directory(dir / "empty");
  ask_path(dir / "empty");
  EXPECT_EQ(R"({"size":0})", requester.result());
}

TEST_F(Get_PVC_Size_Handler, PlainFileHasSizeZero) {
  ask_path(dir / "vol-1/a");
  EXPECT_EQ(R"({"size":0})", requester.result());
}

TEST_F(Get_PVC_Size_Handler, PatternWithoutAMatchIsInvalid) {
  EXPECT_EQ(requester.channel().send_error_result, ask_path(dir / "none-*"));
  EXPECT_EQ("-32602 Invalid params: failed to get path.", requester.error());
}

TEST_F(Get_PVC_Size_Handler, EmptyPathIsInvalid) {
  ask_path("");
  EXPECT_EQ("-32602 Invalid params: failed to get path.", requester.error());
}

TEST_F(Get_PVC_Size_Handler, PathOfAnotherTypeIsInvalid) {
  EXPECT_EQ(requester.channel().send_error_result, ask(R"({"path":1})"));
  EXPECT_EQ("-32602 Invalid params: 'path' is expected as string in params.", requester.error());
}

TEST_F(Get_PVC_Size_Handler, MissingPathIsInvalid) {
  ask("{}");
  EXPECT_EQ("-32602 Invalid params: 'path' is expected as string in params.", requester.error());
}

TEST_F(Get_PVC_Size_Handler, ParamsThatAreNoObjectAreInvalid) {
  EXPECT_EQ(requester.channel().send_error_result, ask("[]"));
  EXPECT_EQ("-32602 Invalid params: params type must be object.", requester.error());
}

TEST_F(Get_PVC_Size_Handler, WithoutMemoryForTheResponseAnErrorIsSent) {
  const Failing_New no_memory(sizeof(JSON_RPC_Response));
  errno = 0;
  EXPECT_EQ(requester.channel().send_error_result, ask_path(dir / "vol-1"));
  EXPECT_EQ(ENOMEM, errno);
  EXPECT_EQ("-32603 Internal error, out of memory.", requester.error());
}

TEST_F(Get_PVC_Size_Handler, ParamsAreLookedAtBeforeMemoryIsTaken) {
  const Failing_New no_memory(sizeof(JSON_RPC_Response));
  ask_path(dir / "none");
  EXPECT_EQ("-32602 Invalid params: failed to get path.", requester.error());
}

TEST_F(Get_PVC_Size_Handler, GoneRequesterIsLogged) {
  Log_Capture inner;
  JSON_RPC_Request request;
  EXPECT_EQ(-1, handler.handle_request(nullptr, request));
  EXPECT_THAT(inner.texts(LM_ERROR), ::testing::ElementsAre("Abort handling JSON-RPC request, requester has gone.\n"));
}

TEST_F(Get_PVC_Size_Handler, RunsOnAWorkerOfThePool) {
  ASSERT_EQ(0, JSON_RPC_Thread_Pool::instance()->open("test", 2, 10, 0, 0));
  EXPECT_EQ(0, handler.handle(requester.ptr(), Requester::request(json(R"({"path":")" + (dir / "vol-1") + "\"}"))));
  JSON_RPC_Thread_Pool::close_instance();
  EXPECT_EQ(R"({"size":42})", requester.result());
}

}  // namespace
