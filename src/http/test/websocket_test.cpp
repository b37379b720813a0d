#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "http/test/server_fixture.h"

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class WebSocket_Test : public HTTP_Server_Fixture {
 protected:
  /// A peer whose handshake is done.
  Raw_Peer open() {
    Raw_Peer peer = this->peer();
    peer.say(upgrade());
    EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 101 "));
    return peer;
  }
  /// The code of the close frame that the server sends before it ends the connection; 0 without one.
  static int close_code(Raw_Peer& peer) {
    const std::string all = peer.hear_all();
    if (all.size() < 4 || static_cast<unsigned char>(all[0]) != 0x88) return 0;
    return static_cast<unsigned char>(all[2]) << 8 | static_cast<unsigned char>(all[3]);
  }
};

TEST_F(WebSocket_Test, HandshakeIsThatOfTheStandard) {
  start();
  Raw_Peer peer = this->peer();
  peer.say(upgrade());
  EXPECT_THAT(peer.hear(), HasSubstr("Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n"));
}

TEST_F(WebSocket_Test, MessagesAreAnswered) {
  start();
  Raw_Peer peer = open();
  for (const char* text : {"one", "two"}) {
    peer.say(frame(0x81, text));
    EXPECT_EQ(text, hear_frame(peer));
  }
}

TEST_F(WebSocket_Test, FragmentsAreOneMessage) {
  start();
  Raw_Peer peer = open();
  peer.say(frame(0x01, "a") + frame(0x00, "") + frame(0x89, "ping") + frame(0x80, "b"));
  EXPECT_EQ("ping", hear_frame(peer));  // the pong
  EXPECT_EQ("ab", hear_frame(peer));
}

TEST_F(WebSocket_Test, SenderMayBeUsedFromAnyThread) {
  start();
  Raw_Peer peer = open();
  const auto sender = service_.sender();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&sender] {
      for (int j = 0; j < 100; ++j) sender->send("x");
    });
  }
  for (int i = 0; i < 400; ++i) ASSERT_EQ("x", hear_frame(peer)) << i;
  for (auto& thread : threads) thread.join();
}

TEST_F(WebSocket_Test, ReceiverGoesWithThePeer) {
  start();
  Raw_Peer peer = open();
  const auto sender = service_.sender();
  EXPECT_TRUE(service_.receiver_is_held());
  peer.hang_up();
  EXPECT_TRUE(eventually([this] { return !service_.receiver_is_held(); }));
  EXPECT_TRUE(eventually([&sender] { return sender->send("late") == -1; }));
}

TEST_F(WebSocket_Test, OrderlyCloseIsAnswered) {
  start();
  Raw_Peer peer = open();
  peer.say(frame(0x88, std::string("\x03\xe8", 2)));
  EXPECT_EQ(1000, close_code(peer));
}

TEST_F(WebSocket_Test, CallerByTCPNeedsTheToken) {
  start();
  Raw_Peer refused = tcp_peer();
  refused.say(upgrade());
  EXPECT_THAT(refused.hear(), StartsWith("HTTP/1.1 401 "));
  Raw_Peer served = tcp_peer();
  served.say(upgrade("Authorization: Bearer secret\r\n"));
  EXPECT_THAT(served.hear(), StartsWith("HTTP/1.1 101 "));
}

TEST_F(WebSocket_Test, UpgradeOfAnotherPathIsNotFound) {
  start();
  Raw_Peer peer = this->peer();
  std::string request = upgrade();
  peer.say(request.replace(request.find("/d2/jr"), 6, "/other"));
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 404 "));
}

TEST_F(WebSocket_Test, HandshakeWithoutKeyIsABadRequest) {
  start();
  std::string request = upgrade();
  const size_t key = request.find("Sec-WebSocket-Key");
  EXPECT_THAT(conversation(request.substr(0, key) + "\r\n"), StartsWith("HTTP/1.1 400 "));
}

TEST_F(WebSocket_Test, UnmaskedFrameIsAProtocolError) {
  start();
  Raw_Peer peer = open();
  peer.say(std::string("\x81\x01x", 3));
  EXPECT_EQ(1002, close_code(peer));
}

TEST_F(WebSocket_Test, ContinuationWithoutBeginIsAProtocolError) {
  start();
  Raw_Peer peer = open();
  peer.say(frame(0x80, "x"));
  EXPECT_EQ(1002, close_code(peer));
}

TEST_F(WebSocket_Test, TextThatIsNoUTF8IsRefused) {
  start();
  Raw_Peer peer = open();
  peer.say(frame(0x81, "\xff\xfe"));
  EXPECT_EQ(1007, close_code(peer));
}

TEST_F(WebSocket_Test, MessageBeyondTheLimitIsRefused) {
  options_.limits.message_bytes = 1000;
  start();
  Raw_Peer good = open();
  good.say(frame(0x81, std::string(1000, 'x')));
  EXPECT_EQ(4u + 1000u, good.hear(1004).size());
  Raw_Peer peer = open();
  peer.say(frame(0x81, std::string(1001, 'x')));
  EXPECT_EQ(1009, close_code(peer));
}

TEST_F(WebSocket_Test, FragmentsBeyondTheLimitOfAMessageAreRefused) {
  options_.limits.message_bytes = 1000;
  start();
  Raw_Peer peer = open();
  peer.say(frame(0x01, std::string(600, 'x')) + frame(0x00, std::string(600, 'x')));
  EXPECT_EQ(1009, close_code(peer));
}

TEST_F(WebSocket_Test, FragmentsWithoutEndAreCutOffEvenWhenTheyAreEmpty) {
  options_.limits.message_bytes = 100;
  options_.limits.message_overhead_bytes = 300;
  start();
  Raw_Peer peer = open();
  peer.say(frame(0x01, ""));
  const std::string nothing = frame(0x00, "") + frame(0x89, "");  // and a ping
  bool open = true;
  for (int i = 0; i < 1000000 && open; ++i) open = peer.say(nothing);
  EXPECT_FALSE(open);
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "too many fragments"));
}

TEST_F(WebSocket_Test, ManyMessagesAndPingsStayWithinTheBudgetOfEach) {
  options_.limits.message_bytes = 1000;
  options_.limits.message_overhead_bytes = 2000;
  start();
  Raw_Peer peer = open();
  for (int i = 0; i < 200; ++i) {
    peer.say(frame(0x89, std::string(100, 'p')) + frame(0x81, "x"));
    ASSERT_EQ(std::string(100, 'p'), hear_frame(peer)) << i;
    ASSERT_EQ("x", hear_frame(peer)) << i;
  }
}

TEST_F(WebSocket_Test, SilentPeerIsPingedAndThenCutOff) {
  options_.limits.idle = milliseconds(200);
  start();
  Raw_Peer peer = open();
  EXPECT_EQ(0x89, static_cast<unsigned char>(peer.hear(2)[0]));
  peer.hear_all();
  EXPECT_TRUE(eventually([this] { return !service_.receiver_is_held(); }));
}

TEST_F(WebSocket_Test, PeerThatAnswersPingsStays) {
  options_.limits.idle = milliseconds(400);
  start();
  Raw_Peer peer = open();
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(0x89, static_cast<unsigned char>(peer.hear(2)[0]));
    peer.say(frame(0x8a, ""));
  }
  peer.say(frame(0x81, "x"));
  EXPECT_EQ("x", hear_frame(peer));
}

TEST_F(WebSocket_Test, PeerThatDoesNotReadIsCutOff) {
  options_.limits.unsent_bytes = 100000;
  start();
  Raw_Peer peer = open();
  const auto sender = service_.sender();
  bool open = true;
  for (int i = 0; i < 100000 && open; ++i) open = sender->send(std::string(10000, 'x')) == 0;
  EXPECT_FALSE(open);
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "does not read"));
}

TEST_F(WebSocket_Test, CloseOfTheServerEndsWebSockets) {
  start();
  Raw_Peer peer = open();
  const auto sender = service_.sender();
  server_->close();
  EXPECT_EQ(-1, sender->send("late"));
  EXPECT_FALSE(service_.receiver_is_held());
}

}  // namespace
