#include "json_rpc/json_rpc_handler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json_rpc/json_rpc_handler_impl_base.h"
#include "json_rpc/test/recording_channel.h"
#include "support/log_capture.h"

using json_spirit::Value;
using testing::ElementsAre;

namespace {

/// A direct handler that notes the order of its calls.
class Direct_Handler : public JSON_RPC_Handler {
 public:
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override {
    calls.push_back("object");
    return 7;
  }
  int handle_object_post(const Context& context, JSON_RPC_Channel_var channel, JSON_RPC_Object_var) override {
    calls.push_back("post " + std::to_string(context.result) + (channel.get() ? " with channel" : " without channel"));
    return 0;
  }

  std::vector<std::string> calls;
};

TEST(JSON_RPC_Handler_Test, HandleReachesHandleObjectOnTheCallersThreadAndReturnsItsResult) {
  Direct_Handler handler;
  const JSON_RPC_Channel_var channel(new Recording_Channel);
  EXPECT_EQ(7, handler.handle(JSON_RPC_Channel_ptr(channel), make_request("m", Value(1))));
  EXPECT_EQ(7, handler.handle(JSON_RPC_Channel_ptr(), make_request("m", Value(1))));
  EXPECT_THAT(handler.calls, ElementsAre("object", "post 7 with channel", "object", "post 7 without channel"));
}

TEST(JSON_RPC_Handler_Test, BaseOperationsDoNothing) {
  JSON_RPC_Handler handler;
  EXPECT_EQ(0, handler.init(0, nullptr));
  EXPECT_EQ(0, handler.fini());
  EXPECT_EQ(nullptr, handler.create_params_handler());
  EXPECT_EQ(-1, handler.handle(JSON_RPC_Channel_ptr(), make_request("m", Value(1))));
}

/// Notes which operation was reached; all return 3.
class Noting_Base : public JSON_RPC_Handler_Impl_Base {
 public:
  using JSON_RPC_Handler_Impl_Base::JSON_RPC_Handler_Impl_Base;

  int handle_request_or_notify(JSON_RPC_Channel*, JSON_RPC_Request&) override { return note("request_or_notify"); }
  int handle_request_or_notify(JSON_RPC_Channel*, JSON_RPC_YAJL_Request&) override { return note("yajl or notify"); }
  int handle_request(JSON_RPC_Channel*, JSON_RPC_Request&) override { return note("request"); }
  int handle_request(JSON_RPC_Channel*, JSON_RPC_YAJL_Request&) override { return note("yajl"); }
  int handle_notify(JSON_RPC_Channel*, JSON_RPC_Request&) override { return note("notify"); }
  int handle_notify(JSON_RPC_Channel*, JSON_RPC_YAJL_Request&) override { return note("yajl notify"); }
  int handle_response(JSON_RPC_Channel*, JSON_RPC_Response&) override { return note("response"); }
  int handle_response_error(JSON_RPC_Channel*, JSON_RPC_Response_Error&) override { return note("error"); }

  int note(const char* name) {
    called = name;
    return 3;
  }
  std::string called;
};

struct Dispatch_Case {
  const char* name;
  JSON_RPC_Object* (*make)();
  const char* separate;
  const char* combined;
};

class Dispatch_By_Kind : public testing::TestWithParam<Dispatch_Case> {};

TEST_P(Dispatch_By_Kind, ReachesTheOperationOfItsKind) {
  const JSON_RPC_Channel_var channel(new Recording_Channel);
  Noting_Base separate(JSON_RPC_Handler_Impl_Base::SEPARATE);
  EXPECT_EQ(3, separate.handle_object_t(channel, JSON_RPC_Object_var(GetParam().make())));
  EXPECT_EQ(GetParam().separate, separate.called);
  Noting_Base combined(JSON_RPC_Handler_Impl_Base::COMBINED);
  EXPECT_EQ(3, combined.handle_object_t(channel, JSON_RPC_Object_var(GetParam().make())));
  EXPECT_EQ(GetParam().combined, combined.called);
}

template <typename T>
JSON_RPC_Object* make() {
  return new T;
}
JSON_RPC_Object* make_response() {
  return new JSON_RPC_Response(nullptr);
}
JSON_RPC_Object* make_error() {
  return new JSON_RPC_Response_Error(1, Value::null, "", Value::null);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Dispatch_By_Kind,
                         testing::Values(Dispatch_Case{"Request", make<JSON_RPC_Request>, "request",
                                                       "request_or_notify"},
                                         Dispatch_Case{"Notify", make<JSON_RPC_Notify>, "notify", "request_or_notify"},
                                         Dispatch_Case{"YAJL", make<JSON_RPC_YAJL_Request>, "yajl", "yajl or notify"},
                                         Dispatch_Case{"Response", make_response, "response", "response"},
                                         Dispatch_Case{"Error", make_error, "error", "error"}),
                         [](const auto& info) { return info.param.name; });

TEST(JSON_RPC_Handler_Impl_Base_Test, RequestThatNobodyOverridesIsNotFound) {
  auto* const recorder = new Recording_Channel;
  const JSON_RPC_Channel_var channel(recorder);
  JSON_RPC_Handler_Impl_Base base(static_cast<JSON_RPC_Handler_Impl_Base::Mode>(0));
  EXPECT_EQ(0, base.handle_object_t(channel, make_request("m", Value("id"))));
  EXPECT_THAT(recorder->sent(),
              ElementsAre(R"({"error":{"code":-32601,"message":"Method not found."},"id":"id","jsonrpc":"2.0"})"));
}

TEST(JSON_RPC_Handler_Impl_Base_Test, NotificationThatNobodyOverridesIsPassedOver) {
  auto* const recorder = new Recording_Channel;
  const JSON_RPC_Channel_var channel(recorder);
  JSON_RPC_Handler_Impl_Base base(JSON_RPC_Handler_Impl_Base::SEPARATE);
  EXPECT_EQ(0, base.handle_object_t(channel, JSON_RPC_Object_var(new JSON_RPC_Notify)));
  EXPECT_TRUE(recorder->sent().empty());
}

TEST(JSON_RPC_Handler_Impl_Base_Test, NullObjectIsLoggedAndRefused) {
  test_support::Log_Capture log;
  JSON_RPC_Handler_Impl_Base base(JSON_RPC_Handler_Impl_Base::SEPARATE);
  EXPECT_EQ(-1, base.handle_object_t(JSON_RPC_Channel_var(), JSON_RPC_Object_var()));
  EXPECT_TRUE(log.has_containing(LM_EMERGENCY, "object is NULL"));
}

}  // namespace
