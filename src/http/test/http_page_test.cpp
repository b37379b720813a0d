#include "http/http_page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "http/test/server_fixture.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

HTTP_Content who_asks(const HTTP_Page::Caller& caller) {
  return {200, "text/plain", caller.trusted ? "friend" : "stranger"};
}

std::string get(const std::string& path, const std::string& fields = "") {
  return "GET " + path + " HTTP/1.1\r\nHost: x\r\n" + fields + "\r\n";
}

const char* const with_token = "Authorization: Bearer secret\r\n";

class HTTP_Page_Test : public HTTP_Server_Fixture {
 protected:
  void serve_pages() {
    server_ = std::make_unique<HTTP_Server>(service_, options_);
    server_->add_page("/closed", {HTTP_Page::ACCESS_TRUSTED, who_asks});
    server_->add_page("/open", {HTTP_Page::ACCESS_OPEN, who_asks});
    server_->add_page("/teapot", {HTTP_Page::ACCESS_OPEN, [](const HTTP_Page::Caller&) {
                                    return HTTP_Content{503, "text/html", "<p>", {{"X-Kind", "pot"}}};
                                  }});
    ASSERT_EQ(0, server_->listen_unix(socket_)) << log_.all();
    ASSERT_EQ(0, server_->listen_tcp("127.0.0.1", 0, "secret")) << log_.all();
    ASSERT_EQ(0, server_->start()) << log_.all();
  }

  std::string tcp_answer(const std::string& request) {
    Raw_Peer peer = tcp_peer();
    peer.say(request);
    return peer.hear();
  }
};

TEST_F(HTTP_Page_Test, PageIsReadOverTheUnixSocketWithoutAToken) {
  serve_pages();
  Raw_Peer peer = this->peer();
  peer.say(get("/closed"));
  const std::string answer = peer.hear();
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(answer, HasSubstr("Content-Type: text/plain\r\n"));
  EXPECT_THAT(answer, HasSubstr("Cache-Control: no-store\r\n"));
  EXPECT_THAT(answer, HasSubstr("X-Content-Type-Options: nosniff\r\n"));
  EXPECT_THAT(answer, EndsWith("\r\n\r\nfriend"));
}

TEST_F(HTTP_Page_Test, ClosedPageNeedsTheTokenByTcp) {
  serve_pages();
  EXPECT_THAT(tcp_answer(get("/closed")), StartsWith("HTTP/1.1 401 Unauthorized\r\n"));
  EXPECT_THAT(tcp_answer(get("/closed", "Authorization: Bearer wrong\r\n")), StartsWith("HTTP/1.1 401 "));
  EXPECT_THAT(tcp_answer(get("/closed", with_token)), EndsWith("\r\n\r\nfriend"));
}

TEST_F(HTTP_Page_Test, OpenPageKnowsWhoHasShownTheToken) {
  serve_pages();
  EXPECT_THAT(tcp_answer(get("/open")), EndsWith("\r\n\r\nstranger"));
  EXPECT_THAT(tcp_answer(get("/open", "Authorization: Bearer wrong\r\n")), EndsWith("\r\n\r\nstranger"));
  EXPECT_THAT(tcp_answer(get("/open", with_token)), EndsWith("\r\n\r\nfriend"));
}

TEST_F(HTTP_Page_Test, OpenPageDoesNotOpenTheChannel) {
  serve_pages();
  Raw_Peer peer = tcp_peer();
  peer.say(get("/open") + post("[1]"));
  EXPECT_THAT(peer.hear(), EndsWith("\r\n\r\nstranger"));
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 401 "));
  EXPECT_EQ(0u, service_.posts());
}

TEST_F(HTTP_Page_Test, QueryIsNoPartOfThePath) {
  serve_pages();
  EXPECT_THAT(tcp_answer(get("/open?verbose")), EndsWith("\r\n\r\nstranger"));
}

TEST_F(HTTP_Page_Test, HeadHasTheFieldsAndNoBody) {
  serve_pages();
  const std::string answer = conversation("HEAD /closed HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(answer, HasSubstr("Content-Length: 6\r\n"));
  EXPECT_THAT(answer, EndsWith("\r\n\r\n"));
}

TEST_F(HTTP_Page_Test, HeadLeavesTheConnectionInStep) {
  serve_pages();
  const std::string answers =
      conversation("HEAD /closed HTTP/1.1\r\nHost: x\r\n\r\n" + get("/closed", "Connection: close\r\n"));
  EXPECT_THAT(answers, HasSubstr("\r\n\r\nHTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(answers, EndsWith("\r\n\r\nfriend"));
}

TEST_F(HTTP_Page_Test, OtherMethodsAreRefusedWithWhatIsAllowed) {
  serve_pages();
  const std::string answer = conversation("POST /open HTTP/1.1\r\nHost: x\r\nContent-Length: 2\r\n\r\n[]");
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 405 Method Not Allowed\r\n"));
  EXPECT_THAT(answer, HasSubstr("Allow: GET, HEAD\r\n"));
  EXPECT_THAT(conversation(get("/d2/jr", "Connection: close\r\n")), HasSubstr("Allow: POST\r\n"));
}

TEST_F(HTTP_Page_Test, GetWithABodyIsRefusedAndEndsTheConnection) {
  serve_pages();
  const std::string answer = conversation(get("/open", "Content-Length: 60\r\n") + get("/closed"));
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 400 Bad Request\r\n"));
  EXPECT_THAT(answer, Not(HasSubstr("friend")));
}

TEST_F(HTTP_Page_Test, StatusAndFieldsAreThePages) {
  serve_pages();
  const std::string answer = tcp_answer(get("/teapot"));
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 503 Service Unavailable\r\n"));
  EXPECT_THAT(answer, HasSubstr("Content-Type: text/html\r\n"));
  EXPECT_THAT(answer, HasSubstr("X-Kind: pot\r\n"));
}

TEST_F(HTTP_Page_Test, UnknownPathIsNotFoundOnlyForThoseWhoMayAsk) {
  serve_pages();
  EXPECT_THAT(tcp_answer(get("/openly")), StartsWith("HTTP/1.1 401 "));
  EXPECT_THAT(tcp_answer(get("/openly", with_token)), StartsWith("HTTP/1.1 404 "));
}

}  // namespace
