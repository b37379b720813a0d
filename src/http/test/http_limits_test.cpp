// Peers that are slow, greedy or malformed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <list>

#include "http/test/server_fixture.h"

using std::chrono::milliseconds;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class HTTP_Limits_Test : public HTTP_Server_Fixture {
 protected:
  HTTP_Limits_Test() {
    options_.limits.head_bytes = 1024;
    options_.limits.body_bytes = 2000;
    options_.limits.linger = milliseconds(100);
  }
};

struct Malformed {
  const char* name;
  std::string text;
};

class Malformed_Head : public HTTP_Limits_Test, public testing::WithParamInterface<Malformed> {};

TEST_P(Malformed_Head, IsABadRequestAndEndsTheConnection) {
  start();
  EXPECT_THAT(conversation(GetParam().text), StartsWith("HTTP/1.1 400 Bad Request\r\n"));
  EXPECT_EQ(0u, service_.posts());
}

const std::string line = "POST /d2/jr HTTP/1.1\r\n";

INSTANTIATE_TEST_SUITE_P(
    Texts, Malformed_Head,
    testing::Values(Malformed{"NoHTTP", "hello\r\n\r\n"}, Malformed{"NoVersion", "POST /d2/jr\r\n\r\n"},
                    Malformed{"VersionTwo", "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"},
                    Malformed{"ControlInTarget", "POST /d2\x01/jr HTTP/1.1\r\n\r\n"},
                    Malformed{"SpaceInFieldName", line + "Content Length: 1\r\n\r\nx"},
                    Malformed{"FieldWithoutColon", line + "Content-Length\r\n\r\nx"},
                    Malformed{"ControlInFieldValue", line + "A: x\x01y\r\n\r\n"},
                    Malformed{"LengthNotANumber", line + "Content-Length: 1x\r\n\r\nx"},
                    Malformed{"LengthNegative", line + "Content-Length: -1\r\n\r\nx"},
                    Malformed{"LengthBeyond64Bit", line + "Content-Length: 99999999999999999999\r\n\r\nx"},
                    Malformed{"TwoLengths", line + "Content-Length: 1\r\nContent-Length: 2\r\n\r\nxx"},
                    Malformed{"LengthAndChunks",
                              line + "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"},
                    Malformed{"UnknownTransferEncoding", line + "Transfer-Encoding: gzip\r\n\r\nx"},
                    Malformed{"ChunkSizeNotHex", line + "Transfer-Encoding: chunked\r\n\r\nzz\r\nx\r\n0\r\n\r\n"},
                    Malformed{"ChunkSizeTooLong", line + "Transfer-Encoding: chunked\r\n\r\n11111111111111111\r\nx"},
                    Malformed{"ChunkWithoutEnd", line + "Transfer-Encoding: chunked\r\n\r\n1\r\nxyz\r\n0\r\n\r\n"}),
    [](const auto& info) { return info.param.name; });

TEST_F(HTTP_Limits_Test, HeadBeyondItsLimitIs431) {
  start();
  EXPECT_THAT(conversation(line + "A: " + std::string(2000, 'x') + "\r\n\r\n"), StartsWith("HTTP/1.1 431 "));
}

TEST_F(HTTP_Limits_Test, HeadWithoutEndIs431) {
  start();
  std::string fields;
  for (int i = 0; i < 4000; ++i) fields += "A" + std::to_string(i) + ": x\r\n";
  EXPECT_THAT(conversation(line + fields), StartsWith("HTTP/1.1 431 "));
}

TEST_F(HTTP_Limits_Test, BodyOfExactlyTheLimitIsServed) {
  start();
  Raw_Peer peer = this->peer();
  peer.say(post(std::string(2000, 'x')));
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 200 "));
}

TEST_F(HTTP_Limits_Test, BodyBeyondItsLimitIs413BeforeItIsSent) {
  start();
  EXPECT_THAT(conversation(line + "Content-Length: 2001\r\n\r\n"), StartsWith("HTTP/1.1 413 "));
  EXPECT_THAT(conversation(line + "Content-Length: 18446744073709551615\r\n\r\n"), StartsWith("HTTP/1.1 413 "));
}

TEST_F(HTTP_Limits_Test, AnswerReachesAPeerThatGoesOnSendingItsBody) {
  start();
  Raw_Peer peer = this->peer();
  peer.say(line + "Content-Length: 1000000\r\n\r\n");
  peer.say(std::string(1000000, 'x'));
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 413 "));
}

TEST_F(HTTP_Limits_Test, ChunksBeyondTheLimitOfTheBodyAre413) {
  start();
  std::string chunks;
  for (int i = 0; i < 300; ++i) chunks += "a\r\n0123456789\r\n";
  EXPECT_THAT(conversation(line + "Transfer-Encoding: chunked\r\n\r\n" + chunks), StartsWith("HTTP/1.1 413 "));
}

TEST_F(HTTP_Limits_Test, OneHugeChunkIs413) {
  start();
  EXPECT_THAT(conversation(line + "Transfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\nx"),
              StartsWith("HTTP/1.1 413 "));
}

TEST_F(HTTP_Limits_Test, SlowHeadIsCutOff) {
  options_.limits.head = milliseconds(200);
  start();
  Raw_Peer peer = this->peer();
  const auto begin = std::chrono::steady_clock::now();
  // A byte now and then does not stretch the time.
  while (peer.say("A") && std::chrono::steady_clock::now() - begin < std::chrono::seconds(10)) {
    std::this_thread::sleep_for(milliseconds(20));
  }
  EXPECT_TRUE(peer.ends());
}

TEST_F(HTTP_Limits_Test, SilentPeerIsCutOff) {
  options_.limits.head = milliseconds(50);
  start();
  EXPECT_TRUE(peer().ends());
}

TEST_F(HTTP_Limits_Test, SlowHeadBehindARequestIsCutOffAsEarly) {
  options_.limits.head = milliseconds(50);
  start();
  Raw_Peer peer = this->peer();
  peer.say(post("x") + "POST /d2");
  EXPECT_THAT(peer.hear(), EndsWith("x"));
  EXPECT_TRUE(peer.ends());
}

TEST_F(HTTP_Limits_Test, StalledBodyIsCutOff) {
  options_.limits.body = milliseconds(50);
  start();
  Raw_Peer peer = this->peer();
  peer.say(line + "Content-Length: 10\r\n\r\nabc");
  EXPECT_TRUE(peer.ends());
  EXPECT_EQ(0u, service_.posts());
}

TEST_F(HTTP_Limits_Test, IdleConnectionIsCutOff) {
  options_.limits.idle = milliseconds(50);
  start();
  Raw_Peer peer = this->peer();
  peer.say(post("x"));
  EXPECT_THAT(peer.hear(), EndsWith("x"));
  EXPECT_TRUE(peer.ends());
}

TEST_F(HTTP_Limits_Test, PeerThatDoesNotReadItsAnswerIsCutOff) {
  options_.limits.body_bytes = 32 * 1024 * 1024;
  options_.limits.write = milliseconds(100);
  start();
  Raw_Peer peer = this->peer();
  peer.say(post(std::string(16 * 1024 * 1024, 'x')));
  ASSERT_TRUE(eventually([this] { return service_.posts() == 1; }));
  std::this_thread::sleep_for(milliseconds(500));
  EXPECT_LT(peer.hear_all().size(), 16u * 1024 * 1024);
}

TEST_F(HTTP_Limits_Test, PeerThatClosesInTheMiddleIsNoRequest) {
  start();
  for (const std::string text : {"POST /d2", "POST /d2/jr HTTP/1.1\r\nContent-Length: 10\r\n\r\nabc"}) {
    Raw_Peer peer = this->peer();
    peer.say(text);
    peer.hang_up();
  }
  Raw_Peer good = peer();
  good.say(post("x"));
  EXPECT_THAT(good.hear(), EndsWith("x"));
  EXPECT_EQ(1u, service_.posts());
}

// What hundreds of peers say and then no more: nothing, a part of a head, a part of a body, a request that is refused.
class Stalled_Peers : public HTTP_Limits_Test, public testing::WithParamInterface<Malformed> {};

TEST_P(Stalled_Peers, GiveWayToAGoodOne) {
  options_.limits.connections = 50;
  options_.limits.connections_per_peer = 50;
  options_.limits.linger = std::chrono::seconds(20);
  start();
  std::list<Raw_Peer> stalled;
  for (int i = 0; i < 200; ++i) stalled.push_back(i % 2 ? peer() : tcp_peer());
  for (auto& one : stalled) one.say(GetParam().text);
  for (int i = 0; i < 20; ++i) {
    Raw_Peer good = peer();
    good.say(post("x"));
    EXPECT_THAT(good.hear(), EndsWith("x"));
  }
  // The earliest have given way.
  stalled.front().hear_all();
  EXPECT_TRUE(stalled.front().ends());
}

INSTANTIATE_TEST_SUITE_P(Texts, Stalled_Peers,
                         testing::Values(Malformed{"Silent", ""}, Malformed{"InTheHead", "POST /d2/jr HT"},
                                         Malformed{"InTheBody", line + "Authorization: Bearer secret\r\n"
                                                                       "Content-Length: 10\r\n\r\nabc"},
                                         Malformed{"Refused", line + "Content-Length: 99999\r\n\r\n"}),
                         [](const auto& info) { return info.param.name; });

TEST_F(HTTP_Limits_Test, ConnectionBeyondTheCapIsRefusedWhileAllOthersAreServed) {
  options_.limits.connections = 1;
  start();
  Raw_Peer first = peer();
  first.say(post("keep"));
  const auto exchange = service_.kept();
  EXPECT_TRUE(peer().ends());
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "refused: too many."));
  exchange->reply(200, "answer");
  EXPECT_THAT(first.hear(), EndsWith("answer"));
}

TEST_F(HTTP_Limits_Test, ManyRefusedBodiesTakeNoMemory) {
  const auto resident_pages = [] {
    size_t size = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident;
  };
  options_.limits.body_bytes = 64 * 1024 * 1024;
  start();
  const size_t before = resident_pages();
  std::list<Raw_Peer> greedy;
  for (int i = 0; i < 50; ++i) {
    greedy.push_back(peer());
    greedy.back().say(line + "Content-Length: 67108864\r\n\r\nx");
  }
  Raw_Peer good = peer();
  good.say(post("x"));
  EXPECT_THAT(good.hear(), EndsWith("x"));
  EXPECT_LT(resident_pages() - before, 50u * 1024 * 1024 / 4096);
}

}  // namespace
