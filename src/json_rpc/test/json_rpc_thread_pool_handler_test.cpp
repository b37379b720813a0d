#include "json_rpc/json_rpc_thread_pool_handler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <thread>

#include "json_rpc/json_rpc_thread_pool.h"
#include "json_rpc/test/recording_channel.h"
#include "support/log_capture.h"

using json_spirit::Value;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Answers with what it was called as, and tells on which thread.
class Pooled_Handler : public JSON_RPC_Thread_Pool_Handler_Impl {
 public:
  Pooled_Handler() : JSON_RPC_Thread_Pool_Handler_Impl(static_cast<Mode>(0)) {}

  int handle_request(JSON_RPC_Channel* channel, JSON_RPC_Request& request) override {
    if (work) work();
    if (channel) {
      auto* const response = new JSON_RPC_Response(&request);
      response->result() = Value("done");
      channel->send(JSON_RPC_Object_var(response));
    }
    handled.set_value(channel ? std::this_thread::get_id() : std::thread::id());
    return 0;
  }

  std::promise<std::thread::id> handled;
  std::function<void()> work;
};

class JSON_RPC_Thread_Pool_Handler_Test : public testing::Test {
 protected:
  void TearDown() override { JSON_RPC_Thread_Pool::close_instance(); }

  void open(size_t threads, size_t max_queued = 10) {
    ASSERT_EQ(0, JSON_RPC_Thread_Pool::instance()->open("test", threads, max_queued, 0, 30));
  }

  test_support::Log_Capture log_;
  Pooled_Handler handler_;
  Recording_Channel* const recorder_ = new Recording_Channel;
  JSON_RPC_Channel_var channel_{recorder_};
  const JSON_RPC_Object_var request_ = make_request("k8s.cancel_job", Value(1));
};

TEST_F(JSON_RPC_Thread_Pool_Handler_Test, RequestIsHandledOnAWorker) {
  open(2);
  EXPECT_EQ(0, handler_.handle(JSON_RPC_Channel_ptr(channel_), request_));
  const auto worker = handler_.handled.get_future().get();
  JSON_RPC_Thread_Pool::instance()->close();
  EXPECT_NE(std::this_thread::get_id(), worker);
  EXPECT_NE(std::thread::id(), worker);
  EXPECT_THAT(recorder_->sent(), ElementsAre(R"({"id":1,"jsonrpc":"2.0","result":"done"})"));
}

TEST_F(JSON_RPC_Thread_Pool_Handler_Test, ChannelIsHeldWhileTheRequestWaits) {
  open(1);
  std::promise<void> go;
  handler_.work = [&go] { go.get_future().wait(); };
  JSON_RPC_Channel_ptr weak(channel_);
  EXPECT_EQ(0, handler_.handle(weak, request_));
  channel_ = JSON_RPC_Channel_var();
  EXPECT_NE(nullptr, JSON_RPC_Channel_var(weak).get());
  go.set_value();
  EXPECT_NE(std::thread::id(), handler_.handled.get_future().get());
  JSON_RPC_Thread_Pool::instance()->close();
  EXPECT_EQ(nullptr, JSON_RPC_Channel_var(weak).get());
}

TEST_F(JSON_RPC_Thread_Pool_Handler_Test, RequesterThatHasGoneIsANullChannelForTheHandler) {
  open(1);
  JSON_RPC_Channel_ptr weak(channel_);
  channel_ = JSON_RPC_Channel_var();
  EXPECT_EQ(0, handler_.handle(weak, request_));
  EXPECT_EQ(std::thread::id(), handler_.handled.get_future().get());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(JSON_RPC_Thread_Pool_Handler_Test, WithoutWorkersTheRequestIsLostWithTwoLines) {
  open(0);
  EXPECT_EQ(0, handler_.handle(JSON_RPC_Channel_ptr(channel_), request_));
  EXPECT_THAT(log_.texts(LM_ERROR),
              ElementsAre("No active worker thread!\n",
                          "Failed to schedule handling of JSON-RPC {\"id\":1,\"jsonrpc\":\"2.0\",\"method\":"
                          "\"k8s.cancel_job\"} into thread pool queue.\n"));
  EXPECT_THAT(recorder_->sent(), IsEmpty());
}

TEST_F(JSON_RPC_Thread_Pool_Handler_Test, WithoutOpenPoolTheRequestIsLostWithTwoLines) {
  EXPECT_EQ(0, handler_.handle(JSON_RPC_Channel_ptr(channel_), request_));
  ASSERT_EQ(1u, log_.texts(LM_EMERGENCY).size());
  EXPECT_THAT(
      log_.texts(LM_EMERGENCY)[0],
      testing::MatchesRegex("Unexpected error in .*json_rpc_thread_pool\\.cpp:[0-9]+, pool_ is NULL:\n(.|\n)*\n"));
  EXPECT_EQ(1u, log_.texts(LM_ERROR).size());
  EXPECT_THAT(recorder_->sent(), IsEmpty());
}

TEST_F(JSON_RPC_Thread_Pool_Handler_Test, FullQueueRefusesAtOnce) {
  open(1, 1);
  std::promise<void> begun, go;
  JSON_RPC_Thread_Pool::instance()->schedule(ACE_Time_Value::zero, [&] {
    begun.set_value();
    go.get_future().wait();
  });
  begun.get_future().wait();
  JSON_RPC_Thread_Pool::instance()->schedule(ACE_Time_Value::zero, [] {});
  EXPECT_EQ(0, handler_.handle(JSON_RPC_Channel_ptr(channel_), request_));
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "Failed to schedule handling of JSON-RPC {"));
  go.set_value();
  JSON_RPC_Thread_Pool::instance()->close();
}

TEST_F(JSON_RPC_Thread_Pool_Handler_Test, ExceptionOfAHandlerDoesNotCostTheWorker) {
  open(1);
  handler_.work = [] { throw std::runtime_error("no luck"); };
  handler_.handle(JSON_RPC_Channel_ptr(channel_), request_);
  std::promise<void> next;
  JSON_RPC_Thread_Pool::instance()->schedule(ACE_Time_Value::zero, [&next] { next.set_value(); });
  next.get_future().wait();
  JSON_RPC_Thread_Pool::instance()->close();
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "no luck"));
}

TEST_F(JSON_RPC_Thread_Pool_Handler_Test, PoolTellsItsExpiryAndRefusesASecondOpen) {
  open(1);
  EXPECT_EQ(30, JSON_RPC_Thread_Pool::instance()->expiry());
  EXPECT_EQ(-1, JSON_RPC_Thread_Pool::instance()->open("test", 1, 1, 0, 1));
  EXPECT_EQ(30, JSON_RPC_Thread_Pool::instance()->expiry());
  EXPECT_EQ(0, JSON_RPC_Thread_Pool::instance()->close());
  EXPECT_EQ(0, JSON_RPC_Thread_Pool::instance()->close());
}

}  // namespace
