#include "json_rpc/json_rpc_exchange.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "json_rpc/json_rpc_parser.h"
#include "json_rpc/test/recording_channel.h"
#include "json_spirit/json_spirit_helper.h"
#include "support/log_capture.h"

using json_spirit::Value;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* invalid = R"({"error":{"code":-32600,"message":"Invalid request."},"id":null,"jsonrpc":"2.0"})";

/// Answers with its params, at once.
class Echo : public JSON_RPC_Handler {
 public:
  int handle_object(JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var object) override {
    const JSON_RPC_Channel_var channel(sender);
    auto& request = static_cast<JSON_RPC_Request&>(*object);
    auto* const response = new JSON_RPC_Response(&request);
    response->result() = request.params();
    ++calls;
    return channel->send(JSON_RPC_Object_var(response));
  }
  int calls = 0;
};

/// Keeps what it gets, to be answered later.
class Keeper : public JSON_RPC_Handler {
 public:
  int handle_object(JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var object) override {
    kept.emplace_back(sender, object);
    return 0;
  }
  int answer(size_t i) {
    const JSON_RPC_Channel_var channel(kept[i].first);
    if (!channel.get()) return -2;
    return channel->send(JSON_RPC_Object_var(new JSON_RPC_Response(JSON_RPC_Request::narrow(kept[i].second.get()))));
  }
  std::vector<std::pair<JSON_RPC_Channel_ptr, JSON_RPC_Object_var>> kept;
};

class Failing : public JSON_RPC_Handler {
 public:
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { return -1; }
};

class Throwing : public JSON_RPC_Handler {
 public:
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { throw std::runtime_error("no luck"); }
};

class JSON_RPC_Exchange_Test : public testing::Test {
 protected:
  void SetUp() override {
    dispatcher_.bind("echo", &echo_);
    dispatcher_.bind("keep", &keeper_);
    dispatcher_.bind("fail", &failing_);
    dispatcher_.bind("throw", &throwing_);
  }

  std::shared_ptr<JSON_RPC_Exchange> serve(const std::string& text) {
    auto exchange = std::make_shared<JSON_RPC_Exchange>(dispatcher_, 3, [this](std::string answer) {
      answers_.push_back(answer);
      return 0;
    });
    exchange->serve(text);
    return exchange;
  }

  test_support::Log_Capture log_;
  JSON_RPC_Dispatcher dispatcher_;
  Echo echo_;
  Keeper keeper_;
  Failing failing_;
  Throwing throwing_;
  std::vector<std::string> answers_;
};

TEST_F(JSON_RPC_Exchange_Test, RequestGetsItsAnswer) {
  serve(R"({"jsonrpc":"2.0","id":1,"method":"echo","params":{"a":[1]}})");
  EXPECT_THAT(answers_, ElementsAre(R"({"id":1,"jsonrpc":"2.0","result":{"a":[1]}})"));
}

TEST_F(JSON_RPC_Exchange_Test, IdComesBackAsItWasSent) {
  for (const std::string id : {R"("a\"b")", "-7", "18446744073709551615", "1.5", "null", R"("")"}) {
    answers_.clear();
    serve(R"({"jsonrpc":"2.0","method":"echo","id":)" + id + "}");
    EXPECT_THAT(answers_, ElementsAre(R"({"id":)" + id + R"(,"jsonrpc":"2.0","result":null})"));
  }
}

TEST_F(JSON_RPC_Exchange_Test, ParamsOfAnyTypeReachTheHandler) {
  for (const std::string params : {"{}", "[]", "null", "3", R"("x")", "true"}) {
    answers_.clear();
    serve(R"({"jsonrpc":"2.0","id":1,"method":"echo","params":)" + params + "}");
    EXPECT_THAT(answers_, ElementsAre(R"({"id":1,"jsonrpc":"2.0","result":)" + params + "}"));
  }
}

TEST_F(JSON_RPC_Exchange_Test, TextThatIsNoJSONIsAParseError) {
  const std::string nul("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"echo\"}\0", 41);
  for (const std::string& text :
       {std::string(), std::string("{"), std::string("\xff"), std::string(100000, '['), nul}) {
    answers_.clear();
    serve(text);
    EXPECT_THAT(answers_,
                ElementsAre(R"({"error":{"code":-32700,"message":"Parse error."},"id":null,"jsonrpc":"2.0"})"));
  }
  EXPECT_EQ(0, echo_.calls);
}

TEST_F(JSON_RPC_Exchange_Test, DocumentThatIsNoRequestIsInvalidWithNullId) {
  for (const std::string text :
       {"1", "null", R"("x")", "{}", R"({"jsonrpc":"2.0","id":1})", R"({"id":1,"method":"echo"})",
        R"({"jsonrpc":"1.0","id":1,"method":"echo"})", R"({"jsonrpc":2.0,"id":1,"method":"echo"})",
        R"({"jsonrpc":"2.0","id":1,"method":3})", R"({"jsonrpc":"2.0","id":{},"method":"echo"})",
        R"({"jsonrpc":"2.0","id":[1],"method":"echo"})", R"({"jsonrpc":"2.0","id":true,"method":"echo"})",
        R"({"jsonrpc":"2.0","id":1,"result":3})"}) {
    answers_.clear();
    serve(text);
    EXPECT_THAT(answers_, ElementsAre(invalid)) << text;
  }
  EXPECT_EQ(0, echo_.calls);
}

TEST_F(JSON_RPC_Exchange_Test, UnknownMethodIsNotFound) {
  serve(R"({"jsonrpc":"2.0","id":"x","method":"nope"})");
  EXPECT_THAT(answers_,
              ElementsAre(R"({"error":{"code":-32601,"message":"Method not found."},"id":"x","jsonrpc":"2.0"})"));
}

TEST_F(JSON_RPC_Exchange_Test, NotificationIsHandledAndNotAnswered) {
  serve(R"({"jsonrpc":"2.0","method":"echo"})");
  EXPECT_EQ(1, echo_.calls);
  EXPECT_THAT(answers_, ElementsAre(""));
}

TEST_F(JSON_RPC_Exchange_Test, NotificationOfUnknownMethodIsPassedOver) {
  serve(R"({"jsonrpc":"2.0","method":"nope"})");
  EXPECT_THAT(answers_, ElementsAre(""));
}

TEST_F(JSON_RPC_Exchange_Test, HandlerThatFailsWithoutAnswerIsAnInternalError) {
  const char* const error = R"({"error":{"code":-32603,"message":"Internal error."},"id":1,"jsonrpc":"2.0"})";
  serve(R"({"jsonrpc":"2.0","id":1,"method":"fail"})");
  serve(R"({"jsonrpc":"2.0","id":1,"method":"throw"})");
  EXPECT_THAT(answers_, ElementsAre(error, error));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("Exception in the handler of 'throw': no luck\n"));
}

TEST_F(JSON_RPC_Exchange_Test, BatchIsAnsweredByAnArrayWithoutTheNotifications) {
  serve(R"([{"jsonrpc":"2.0","id":1,"method":"echo"},{"jsonrpc":"2.0","method":"echo"},7])");
  EXPECT_THAT(answers_, ElementsAre(std::string(R"([{"id":1,"jsonrpc":"2.0","result":null},)") + invalid + "]"));
}

TEST_F(JSON_RPC_Exchange_Test, BatchOfOneIsStillAnArray) {
  serve(R"([{"jsonrpc":"2.0","id":1,"method":"echo"}])");
  EXPECT_THAT(answers_, ElementsAre(R"([{"id":1,"jsonrpc":"2.0","result":null}])"));
}

TEST_F(JSON_RPC_Exchange_Test, BatchOfNotificationsIsNotAnswered) {
  serve(R"([{"jsonrpc":"2.0","method":"echo"},{"jsonrpc":"2.0","method":"nope"}])");
  EXPECT_THAT(answers_, ElementsAre(""));
}

TEST_F(JSON_RPC_Exchange_Test, EmptyBatchAndOneTooLongAreSingleErrorsAndNothingIsHandled) {
  const std::string one = R"({"jsonrpc":"2.0","id":1,"method":"echo"})";
  serve("[]");
  serve("[" + one + "," + one + "," + one + "," + one + "]");
  EXPECT_THAT(answers_, ElementsAre(R"({"error":{"code":-32600,"message":"Invalid request: the batch is empty."},)"
                                    R"("id":null,"jsonrpc":"2.0"})",
                                    R"({"error":{"code":-32600,"message":"Invalid request: the batch is too long."},)"
                                    R"("id":null,"jsonrpc":"2.0"})"));
  EXPECT_EQ(0, echo_.calls);
}

TEST_F(JSON_RPC_Exchange_Test, BatchWaitsForItsLastAnswer) {
  const auto exchange = serve(R"([{"jsonrpc":"2.0","id":1,"method":"keep"},{"jsonrpc":"2.0","id":2,"method":"keep"}])");
  EXPECT_EQ(0, keeper_.answer(1));
  EXPECT_THAT(answers_, IsEmpty());
  EXPECT_EQ(0, keeper_.answer(0));
  EXPECT_THAT(answers_,
              ElementsAre(R"([{"id":2,"jsonrpc":"2.0","result":null},{"id":1,"jsonrpc":"2.0","result":null}])"));
}

TEST_F(JSON_RPC_Exchange_Test, SecondAnswerToARequestIsRefused) {
  const auto exchange = serve(R"([{"jsonrpc":"2.0","id":1,"method":"keep"},{"jsonrpc":"2.0","id":2,"method":"keep"}])");
  EXPECT_EQ(0, keeper_.answer(0));
  EXPECT_EQ(-1, keeper_.answer(0));
  EXPECT_THAT(answers_, IsEmpty());
}

TEST_F(JSON_RPC_Exchange_Test, ChannelExpiresWhenAllIsAnswered) {
  const auto exchange = serve(R"({"jsonrpc":"2.0","id":1,"method":"keep"})");
  EXPECT_EQ(0, keeper_.answer(0));
  EXPECT_EQ(-2, keeper_.answer(0));
}

TEST_F(JSON_RPC_Exchange_Test, ChannelExpiresWhenThePeerGoes) {
  auto exchange = serve(R"({"jsonrpc":"2.0","id":1,"method":"keep"})");
  exchange.reset();
  EXPECT_EQ(-2, keeper_.answer(0));
  EXPECT_THAT(answers_, IsEmpty());
}

TEST_F(JSON_RPC_Exchange_Test, ChannelThatIsHeldRefusesAfterThePeerHasGone) {
  auto exchange = serve(R"({"jsonrpc":"2.0","id":1,"method":"keep"})");
  const JSON_RPC_Channel_var held(keeper_.kept[0].first);
  exchange.reset();
  EXPECT_EQ(-1, keeper_.answer(0));
  EXPECT_THAT(answers_, IsEmpty());
}

TEST_F(JSON_RPC_Exchange_Test, AnswersFromSeveralThreadsMakeOneArray) {
  const auto exchange = serve(R"([{"jsonrpc":"2.0","id":1,"method":"keep"},{"jsonrpc":"2.0","id":1,"method":"keep"},
                                  {"jsonrpc":"2.0","id":1,"method":"keep"}])");
  std::vector<std::thread> threads;
  for (size_t i = 0; i < 3; ++i) threads.emplace_back([this, i] { keeper_.answer(i); });
  for (auto& thread : threads) thread.join();
  const std::string one = R"({"id":1,"jsonrpc":"2.0","result":null})";
  EXPECT_THAT(answers_, ElementsAre("[" + one + "," + one + "," + one + "]"));
}

TEST(JSON_RPC_Dispatcher_Test, MethodIsBoundOnceAndHasAName) {
  test_support::Log_Capture log;
  JSON_RPC_Dispatcher dispatcher;
  Echo echo;
  EXPECT_EQ(0, dispatcher.bind("b", &echo));
  EXPECT_EQ(0, dispatcher.bind("a", &echo, "/lib/x.so"));
  EXPECT_EQ(-1, dispatcher.bind("a", &echo));
  EXPECT_EQ(-1, dispatcher.bind("", &echo));
  EXPECT_THAT(log.texts(LM_ERROR), ElementsAre("Failed to bind method 'a': it is bound already.\n",
                                               "Failed to bind method '': it has no name.\n"));
  EXPECT_THAT(dispatcher.methods(), ElementsAre("a", "b"));
  EXPECT_THAT(dispatcher.origins(), ElementsAre("/lib/x.so"));
  dispatcher.unbind("a");
  dispatcher.unbind("a");
  EXPECT_THAT(dispatcher.methods(), ElementsAre("b"));
}

}  // namespace
