#include "json_rpc/json_rpc_object.h"

#include <gtest/gtest.h>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_error_code.h"
#include "json_rpc/test/recording_channel.h"

using json_spirit::Value;

namespace {

std::string text(const JSON_RPC_Object& object) {
  return JSON_RPC_Object_Dump(object, 0).c_str();
}

TEST(JSON_RPC_Object_Test, RequestShowsVersionIdMethodAndParams) {
  JSON_RPC_Request request;
  request.method("m");
  request.id(Value("7"));
  request.params().to_new_array().push_back(Value(1));
  EXPECT_EQ(R"({"id":"7","jsonrpc":"2.0","method":"m","params":[1]})", text(request));
}

TEST(JSON_RPC_Object_Test, DefaultRequestTellsTheVersionAndHasNullIdAndParams) {
  const JSON_RPC_Request request;
  EXPECT_STREQ("2.0", request.version());
  EXPECT_TRUE(request.id().is_null());
  EXPECT_TRUE(request.params().is_null());
  EXPECT_EQ(R"({"id":null,"jsonrpc":"2.0","method":""})", text(request));
}

TEST(JSON_RPC_Object_Test, NotificationIsNoRequestAndShowsNoId) {
  JSON_RPC_Notify notify;
  notify.method("m");
  EXPECT_FALSE(notify.is_request());
  EXPECT_EQ(nullptr, JSON_RPC_Request::narrow(&notify));
  EXPECT_EQ(R"({"jsonrpc":"2.0","method":"m"})", text(notify));
}

TEST(JSON_RPC_Object_Test, NarrowGivesTheRequestAndNullForNullAndResponses) {
  JSON_RPC_Request request;
  JSON_RPC_Response response(&request);
  EXPECT_EQ(&request, JSON_RPC_Request::narrow(&request));
  EXPECT_EQ(nullptr, JSON_RPC_Request::narrow(nullptr));
  EXPECT_EQ(nullptr, JSON_RPC_Request::narrow(&response));
}

TEST(JSON_RPC_Object_Test, ResponseIsBoundToTheIdOfItsRequest) {
  JSON_RPC_Request request;
  request.id(Value(uint64_t(18446744073709551615u)));
  JSON_RPC_Response response(&request);
  response.result() = Value("task-1");
  EXPECT_EQ(R"({"id":18446744073709551615,"jsonrpc":"2.0","result":"task-1"})", text(response));
}

TEST(JSON_RPC_Object_Test, ResponseWithoutRequestHasNullId) {
  EXPECT_EQ(R"({"id":null,"jsonrpc":"2.0","result":null})", text(JSON_RPC_Response(nullptr)));
}

TEST(JSON_RPC_Object_Test, ErrorShowsDataOnlyWhereThereIsSome) {
  const JSON_RPC_Response_Error plain(-32602, Value(1), "bad", Value::null);
  EXPECT_EQ(R"({"error":{"code":-32602,"message":"bad"},"id":1,"jsonrpc":"2.0"})", text(plain));
  const JSON_RPC_Response_Error with_data(-1, Value::null, nullptr, Value("more"));
  EXPECT_EQ(R"({"error":{"code":-1,"data":"more","message":""},"id":null,"jsonrpc":"2.0"})", text(with_data));
}

TEST(JSON_RPC_Object_Test, ErrorCodesAreThoseOfTheProtocol) {
  EXPECT_EQ(-32700, JSON_RPC_E_PARSE_ERROR);
  EXPECT_EQ(-32600, JSON_RPC_E_INVALID_REQUEST);
  EXPECT_EQ(-32601, JSON_RPC_E_METHOD_NOT_FOUND);
  EXPECT_EQ(-32602, JSON_RPC_E_INVALID_PARAMS);
  EXPECT_EQ(-32603, JSON_RPC_E_INTERNAL_ERROR);
  EXPECT_EQ(-32099, JSON_RPC_E_MIN_SERVER_ERROR);
  EXPECT_EQ(-32000, JSON_RPC_E_MAX_SERVER_ERROR);
}

TEST(JSON_RPC_Channel_Test, SendErrorSendsAnErrorAnswerAndReturnsWhatSendReturned) {
  Recording_Channel channel;
  channel.result = 5;
  EXPECT_EQ(5, channel.send_error(JSON_RPC_E_INTERNAL_ERROR, Value("a"), "text\n", Value::null));
  EXPECT_EQ(std::vector<std::string>{R"({"error":{"code":-32603,"message":"text\n"},"id":"a","jsonrpc":"2.0"})"},
            channel.sent());
}

TEST(JSON_RPC_Channel_Test, WeakPointerGivesNullOnceTheRequesterHasGone) {
  JSON_RPC_Channel_ptr weak;
  {
    const JSON_RPC_Channel_var strong(new Recording_Channel);
    weak = strong;
    EXPECT_NE(nullptr, JSON_RPC_Channel_var(weak).get());
  }
  EXPECT_EQ(nullptr, JSON_RPC_Channel_var(weak).get());
}

}  // namespace
