// Who is let in by TCP, when the check takes its time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "http/test/scripted_access.h"
#include "http/test/server_fixture.h"

using std::chrono::milliseconds;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

std::string bearer(const std::string& token) {
  return "Authorization: Bearer " + token + "\r\n";
}

class HTTP_Access_Test : public HTTP_Server_Fixture {
 protected:
  void serve() {
    server_ = std::make_unique<HTTP_Server>(service_, options_);
    const auto page = [](const HTTP_Page::Caller& caller) {
      return HTTP_Content{200, "text/plain", caller.trusted ? "friend" : "stranger"};
    };
    server_->add_page("/open", {HTTP_Page::ACCESS_OPEN, page});
    ASSERT_EQ(0, server_->listen_tcp("127.0.0.1", 0, access_)) << log_.all();
    ASSERT_EQ(0, server_->start()) << log_.all();
  }
  std::string answer(const std::string& request) {
    Raw_Peer peer = tcp_peer();
    peer.say(request);
    return peer.hear();
  }

  const std::shared_ptr<Scripted_Access> access_ = std::make_shared<Scripted_Access>();
};

TEST_F(HTTP_Access_Test, VerdictDecidesByItsStatus) {
  serve();
  EXPECT_THAT(answer(post("[1]", bearer("good"))), EndsWith("[1]"));
  EXPECT_THAT(answer(post("[1]", bearer("stranger"))), StartsWith("HTTP/1.1 403 Forbidden\r\n"));
  EXPECT_EQ(1u, service_.posts());
}

TEST_F(HTTP_Access_Test, CallerWithoutATokenIsNotEvenAskedFor) {
  serve();
  for (const std::string& fields :
       {std::string(), std::string("Authorization: Basic good\r\n"), std::string("Authorization: Bearer\r\n"),
        bearer("good") + bearer("good"), bearer("good") + bearer("bad"),
        std::string("Authorization: Bearer good, good\r\n"), std::string("X-Authorization: Bearer good\r\n")}) {
    EXPECT_THAT(answer(post("[1]", fields)), StartsWith("HTTP/1.1 401 Unauthorized\r\n")) << fields;
  }
  EXPECT_THAT(access_->tokens(), testing::IsEmpty());
  EXPECT_EQ(0u, service_.posts());
}

TEST_F(HTTP_Access_Test, TokenIsNotTakenFromTheTarget) {
  serve();
  EXPECT_THAT(answer("POST /d2/jr?access_token=good HTTP/1.1\r\nHost: x\r\nContent-Length: 0\r\n\r\n"),
              StartsWith("HTTP/1.1 401 "));
}

TEST_F(HTTP_Access_Test, VerdictMayComeLaterFromAnotherThread) {
  serve();
  Raw_Peer peer = tcp_peer();
  peer.say(post("[1]", bearer("unknown")));
  EXPECT_EQ(0, access_->verdict()->reply(200, ""));
  EXPECT_THAT(peer.hear(), EndsWith("[1]"));
  peer.say(post("[2]", bearer("unknown")));
  EXPECT_EQ(0, access_->verdict()->reply(401, ""));
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 401 "));
  EXPECT_EQ(1u, service_.posts());
}

TEST_F(HTTP_Access_Test, BodyIsNotReadBeforeTheVerdict) {
  serve();
  Raw_Peer peer = tcp_peer();
  peer.say("POST /d2/jr HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\nContent-Length: 3\r\n" + bearer("unknown") +
           "\r\n");
  EXPECT_EQ(0, access_->verdict()->reply(403, ""));
  const std::string all = peer.hear_all();
  EXPECT_THAT(all, StartsWith("HTTP/1.1 403 "));
  EXPECT_THAT(all, Not(HasSubstr("100 Continue")));
}

TEST_F(HTTP_Access_Test, BodyThatCameBeforeTheVerdictIsWhole) {
  serve();
  const std::string body(100'000, 'x');
  Raw_Peer peer = tcp_peer();
  peer.say(post(body, bearer("unknown")));
  EXPECT_EQ(0, access_->verdict()->reply(200, ""));
  EXPECT_THAT(peer.hear(), EndsWith("\r\n\r\n" + body));
}

TEST_F(HTTP_Access_Test, WithoutAVerdictInItsTimeTheServiceIsNotAvailable) {
  options_.limits.access = milliseconds(50);
  serve();
  EXPECT_THAT(answer(post("[1]", bearer("unknown"))), StartsWith("HTTP/1.1 503 Service Unavailable\r\n"));
  EXPECT_EQ(-1, access_->verdict()->reply(200, "")) << "too late";
  EXPECT_EQ(0u, service_.posts());
}

TEST_F(HTTP_Access_Test, OthersAreServedWhileOneWaits) {
  options_.threads = 1;
  serve();
  Raw_Peer waiting = tcp_peer();
  waiting.say(post("[1]", bearer("unknown")));
  const auto verdict = access_->verdict();
  EXPECT_THAT(answer(post("[2]", bearer("good"))), EndsWith("[2]"));
  verdict->reply(200, "");
  EXPECT_THAT(waiting.hear(), EndsWith("[1]"));
}

TEST_F(HTTP_Access_Test, PeerThatGoesWhileItIsWaitedForIsNoticed) {
  serve();
  Raw_Peer peer = tcp_peer();
  peer.say(post("[1]", bearer("unknown")));
  const auto verdict = access_->verdict();
  peer.hang_up();
  EXPECT_TRUE(eventually([&] { return verdict->reply(200, "") == -1; }) || service_.posts() == 1);
}

TEST_F(HTTP_Access_Test, WhoWaitsForAVerdictGivesWayToOthers) {
  options_.limits.connections = 2;
  serve();
  Raw_Peer first = tcp_peer(), second = tcp_peer();
  first.say(post("[1]", bearer("unknown")));
  access_->verdict();
  second.say(post("[1]", bearer("unknown")));
  access_->verdict();
  EXPECT_THAT(answer(post("[2]", bearer("good"))), EndsWith("[2]"));
  EXPECT_TRUE(first.ends());
}

TEST_F(HTTP_Access_Test, EachRequestOfAConnectionIsChecked) {
  serve();
  Raw_Peer peer = tcp_peer();
  peer.say(post("[1]", bearer("good")) + post("[2]") + post("[3]", bearer("good")));
  EXPECT_THAT(peer.hear(), EndsWith("[1]"));
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 401 "));
  EXPECT_TRUE(peer.ends()) << "what follows a refused body is not looked at";
  EXPECT_EQ(1u, service_.posts());
}

TEST_F(HTTP_Access_Test, WebSocketNeedsTheTokenAtItsUpgrade) {
  serve();
  EXPECT_THAT(answer(upgrade()), StartsWith("HTTP/1.1 401 "));
  EXPECT_THAT(answer(upgrade(bearer("stranger"))), StartsWith("HTTP/1.1 403 "));
  Raw_Peer peer = tcp_peer();
  peer.say(upgrade(bearer("unknown")));
  access_->verdict()->reply(200, "");
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 101 "));
  peer.say(frame(0x81, "text"));
  EXPECT_EQ("text", hear_frame(peer));
}

TEST_F(HTTP_Access_Test, OpenPageIsReadAsAStrangerWhereNoVerdictLetsIn) {
  options_.limits.access = milliseconds(50);
  serve();
  const auto get = [](const std::string& fields) { return "GET /open HTTP/1.1\r\nHost: x\r\n" + fields + "\r\n"; };
  EXPECT_THAT(answer(get("")), EndsWith("stranger"));
  EXPECT_THAT(answer(get(bearer("good"))), EndsWith("friend"));
  EXPECT_THAT(answer(get(bearer("stranger"))), EndsWith("stranger"));
  EXPECT_THAT(answer(get(bearer("unknown"))), EndsWith("stranger"));
}

TEST_F(HTTP_Access_Test, CloseDoesNotWaitForAVerdict) {
  serve();
  Raw_Peer peer = tcp_peer();
  peer.say(post("[1]", bearer("unknown")));
  const auto verdict = access_->verdict();
  server_->close();
  EXPECT_EQ(-1, verdict->reply(200, ""));
  EXPECT_EQ(0u, service_.posts());
}

TEST_F(HTTP_Access_Test, RefusalsAreToldWithoutTheTokenAndNotWithoutEnd) {
  serve();
  for (int i = 0; i < 30; ++i) answer(post("[1]", bearer("stranger")));
  EXPECT_THAT(log_.texts(LM_WARNING), testing::SizeIs(10));
  EXPECT_EQ("Caller at 127.0.0.1 refused: status 403.\n", log_.texts(LM_WARNING).front());
  EXPECT_THAT(log_.all(), Not(HasSubstr("stranger")));
}

}  // namespace
