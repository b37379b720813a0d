#include "json_rpc/json_rpc_service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "http/http_server.h"
#include "http/test/raw_peer.h"
#include "json_rpc/test/recording_channel.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

using json_spirit::Value;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// Keeps requests until the test answers them.
class Keeper : public JSON_RPC_Handler {
 public:
  int handle_object(JSON_RPC_Channel_ptr sender, JSON_RPC_Object_var object) override {
    const std::lock_guard guard(lock_);
    kept_.emplace_back(sender, object);
    changed_.notify_all();
    return 0;
  }

  /// Waits until there are so many requests.
  void wait_for(size_t count) {
    std::unique_lock guard(lock_);
    changed_.wait(guard, [&] { return kept_.size() >= count; });
  }
  bool has_gone(size_t i) {
    const std::lock_guard guard(lock_);
    return JSON_RPC_Channel_var(kept_[i].first).get() == nullptr;
  }
  /// -2 when the requester has gone.
  int answer(size_t i) {
    const std::lock_guard guard(lock_);
    const JSON_RPC_Channel_var channel(kept_[i].first);
    if (!channel.get()) return -2;
    return channel->send(JSON_RPC_Object_var(new JSON_RPC_Response(JSON_RPC_Request::narrow(kept_[i].second.get()))));
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  std::vector<std::pair<JSON_RPC_Channel_ptr, JSON_RPC_Object_var>> kept_;
};

class JSON_RPC_Service_Test : public testing::Test {
 protected:
  void start() {
    dispatcher_.bind("keep", &keeper_);
    HTTP_Server_Options options;
    options.path = "/d2/jr";
    options.limits.answer = answer_timeout_;
    service_ = std::make_unique<JSON_RPC_Service>(dispatcher_, options_);
    server_ = std::make_unique<HTTP_Server>(*service_, options);
    ASSERT_EQ(0, server_->listen_unix(socket_));
    ASSERT_EQ(0, server_->start());
  }

  Raw_Peer web_socket() {
    Raw_Peer peer = Raw_Peer::to_unix(socket_);
    peer.say(upgrade());
    EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 101 "));
    return peer;
  }

  static std::string keep(int id) { return R"({"jsonrpc":"2.0","method":"keep","id":)" + std::to_string(id) + "}"; }
  static std::string answer(int id) { return R"({"id":)" + std::to_string(id) + R"(,"jsonrpc":"2.0","result":null})"; }

  test_support::Log_Capture log_;
  test_support::Temp_Dir dir_;
  const std::string socket_ = dir_ / "agent.sock";
  JSON_RPC_Dispatcher dispatcher_;
  Keeper keeper_;
  JSON_RPC_Service::Options options_;
  std::chrono::milliseconds answer_timeout_ = std::chrono::seconds(60);
  std::unique_ptr<JSON_RPC_Service> service_;
  std::unique_ptr<HTTP_Server> server_;
};

TEST_F(JSON_RPC_Service_Test, PostGetsTheAnswerWithStatus200) {
  start();
  Raw_Peer peer = Raw_Peer::to_unix(socket_);
  peer.say(post(keep(1)));
  keeper_.wait_for(1);
  EXPECT_EQ(0, keeper_.answer(0));
  const std::string text = peer.hear();
  EXPECT_THAT(text, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(text, EndsWith("\r\n\r\n" + answer(1)));
}

TEST_F(JSON_RPC_Service_Test, ErrorsOfJSONRPCHaveStatus200Too) {
  start();
  Raw_Peer peer = Raw_Peer::to_unix(socket_);
  peer.say(post("{"));
  const std::string text = peer.hear();
  EXPECT_THAT(text, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(text, HasSubstr("-32700"));
}

TEST_F(JSON_RPC_Service_Test, NotificationHasStatus204) {
  start();
  Raw_Peer peer = Raw_Peer::to_unix(socket_);
  peer.say(post(R"({"jsonrpc":"2.0","method":"keep"})"));
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 204 No Content\r\n"));
}

TEST_F(JSON_RPC_Service_Test, RequestThatIsNeverAnsweredHasStatus504AndItsChannelGoes) {
  answer_timeout_ = std::chrono::milliseconds(50);
  start();
  Raw_Peer peer = Raw_Peer::to_unix(socket_);
  peer.say(post(keep(1)));
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 504 "));
  EXPECT_EQ(-2, keeper_.answer(0));
}

TEST_F(JSON_RPC_Service_Test, ChannelGoesWithThePeerOfAPost) {
  start();
  Raw_Peer peer = Raw_Peer::to_unix(socket_);
  peer.say(post(keep(1)));
  keeper_.wait_for(1);
  EXPECT_FALSE(keeper_.has_gone(0));
  peer.hang_up();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!keeper_.has_gone(0) && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(-2, keeper_.answer(0));
}

TEST_F(JSON_RPC_Service_Test, WebSocketGetsAnswersInTheOrderInWhichTheyAreMade) {
  start();
  Raw_Peer peer = web_socket();
  peer.say(frame(0x81, keep(1)) + frame(0x81, keep(2)) + frame(0x81, keep(3)));
  keeper_.wait_for(3);
  for (const size_t i : {2, 0, 1}) EXPECT_EQ(0, keeper_.answer(i));
  for (const int id : {3, 1, 2}) EXPECT_EQ(answer(id), hear_frame(peer));
}

TEST_F(JSON_RPC_Service_Test, WebSocketTakesBatchesAndBrokenTexts) {
  start();
  Raw_Peer peer = web_socket();
  peer.say(frame(0x81, "[" + keep(1) + "," + keep(2) + "]") + frame(0x81, "{"));
  EXPECT_THAT(hear_frame(peer), HasSubstr("-32700"));
  keeper_.wait_for(2);
  keeper_.answer(0);
  keeper_.answer(1);
  EXPECT_EQ("[" + answer(1) + "," + answer(2) + "]", hear_frame(peer));
}

TEST_F(JSON_RPC_Service_Test, NotificationOverWebSocketIsNotAnswered) {
  start();
  Raw_Peer peer = web_socket();
  peer.say(frame(0x81, R"({"jsonrpc":"2.0","method":"keep"})") + frame(0x81, keep(7)));
  keeper_.wait_for(2);
  EXPECT_EQ(0, keeper_.answer(1));
  EXPECT_EQ(answer(7), hear_frame(peer));
}

TEST_F(JSON_RPC_Service_Test, ChannelGoesWithThePeerOfAWebSocket) {
  start();
  Raw_Peer peer = web_socket();
  peer.say(frame(0x81, keep(1)));
  keeper_.wait_for(1);
  server_->close();
  EXPECT_EQ(-2, keeper_.answer(0));
}

TEST_F(JSON_RPC_Service_Test, OpenRequestsOfAWebSocketAreCapped) {
  options_.max_open = 2;
  start();
  Raw_Peer peer = web_socket();
  peer.say(frame(0x81, keep(1)) + frame(0x81, keep(2)) + frame(0x81, keep(3)));
  EXPECT_EQ(R"({"error":{"code":-32000,"message":"Too many requests without an answer."},"id":null,"jsonrpc":"2.0"})",
            hear_frame(peer));
  EXPECT_EQ(0, keeper_.answer(0));
  EXPECT_EQ(answer(1), hear_frame(peer));
  peer.say(frame(0x81, keep(4)));
  keeper_.wait_for(3);
  EXPECT_EQ(0, keeper_.answer(2));
  EXPECT_EQ(answer(4), hear_frame(peer));
}

}  // namespace
