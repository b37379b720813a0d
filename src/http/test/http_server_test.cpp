#include "http/http_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "http/test/server_fixture.h"

using std::chrono::milliseconds;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

class HTTP_Server_Test : public HTTP_Server_Fixture {};

TEST_F(HTTP_Server_Test, PostIsAnsweredByTheService) {
  start();
  Raw_Peer peer = this->peer();
  peer.say(post("[1]"));
  const std::string answer = peer.hear();
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(answer, HasSubstr("Content-Type: application/json\r\n"));
  EXPECT_THAT(answer, EndsWith("\r\n\r\n[1]"));
}

TEST_F(HTTP_Server_Test, ConnectionServesOneRequestAfterTheOther) {
  start();
  Raw_Peer peer = this->peer();
  for (int i = 0; i < 3; ++i) {
    peer.say(post(std::to_string(i)));
    EXPECT_THAT(peer.hear(), EndsWith("\r\n\r\n" + std::to_string(i)));
  }
}

TEST_F(HTTP_Server_Test, PipelinedRequestsAreAnsweredInTheirOrder) {
  start();
  Raw_Peer peer = this->peer();
  peer.say(post("keep") + post("second") + post("third"));
  service_.kept()->reply(200, "first");
  for (const char* body : {"first", "second", "third"})
    EXPECT_THAT(peer.hear(), EndsWith(std::string("\r\n\r\n") + body));
}

TEST_F(HTTP_Server_Test, ConnectionEndsWhenThePeerAsksForIt) {
  start();
  EXPECT_THAT(conversation(post("x", "Connection: close\r\n")), EndsWith("\r\n\r\nx"));
}

TEST_F(HTTP_Server_Test, HTTP10PeerGetsOneAnswer) {
  start();
  EXPECT_THAT(conversation("POST /d2/jr HTTP/1.0\r\nContent-Length: 1\r\n\r\nx"), EndsWith("\r\n\r\nx"));
}

TEST_F(HTTP_Server_Test, AnswerWithoutBodyHasStatus204AndNoLength) {
  start();
  Raw_Peer peer = this->peer();
  peer.say(post("empty"));
  const std::string answer = peer.hear();
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 204 No Content\r\n"));
  EXPECT_THAT(answer, Not(HasSubstr("Content-Length")));
  peer.say(post("next"));
  EXPECT_THAT(peer.hear(), EndsWith("next"));
}

TEST_F(HTTP_Server_Test, OtherPathsAreNotFound) {
  start();
  Raw_Peer peer = this->peer();
  for (const char* target : {"GET / ", "GET /d2/jr/ ", "POST /d2 ", "GET /d2/jrx?a "}) {
    peer.say(std::string(target) + "HTTP/1.1\r\n\r\n");
    EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 404 Not Found\r\n")) << target;
  }
}

TEST_F(HTTP_Server_Test, QueryDoesNotBelongToThePath) {
  start();
  Raw_Peer peer = this->peer();
  peer.say("POST /d2/jr?x=1 HTTP/1.1\r\nContent-Length: 1\r\n\r\nx");
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST_F(HTTP_Server_Test, OtherMethodsAreNotAllowed) {
  start();
  Raw_Peer peer = this->peer();
  for (const char* method : {"GET", "PUT", "DELETE", "OPTIONS"}) {
    peer.say(std::string(method) + " /d2/jr HTTP/1.1\r\n\r\n");
    const std::string answer = peer.hear();
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 405 Method Not Allowed\r\n")) << method;
    EXPECT_THAT(answer, HasSubstr("Allow: POST\r\n"));
  }
}

TEST_F(HTTP_Server_Test, AnswerToHeadHasNoBody) {
  start();
  EXPECT_THAT(conversation("HEAD /none HTTP/1.1\r\nConnection: close\r\n\r\n"), EndsWith("\r\n\r\n"));
}

TEST_F(HTTP_Server_Test, PeerThatExpectsItIsToldToGoOn) {
  start();
  Raw_Peer peer = this->peer();
  peer.say("POST /d2/jr HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 4\r\n\r\n");
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 100 Continue\r\n"));
  peer.say("body");
  EXPECT_THAT(peer.hear(), EndsWith("\r\n\r\nbody"));
}

TEST_F(HTTP_Server_Test, OtherExpectationsFail) {
  start();
  EXPECT_THAT(conversation("POST /d2/jr HTTP/1.1\r\nExpect: wonders\r\nContent-Length: 4\r\n\r\n"),
              StartsWith("HTTP/1.1 417 "));
}

TEST_F(HTTP_Server_Test, ChunkedBodyIsPutTogether) {
  start();
  Raw_Peer peer = this->peer();
  peer.say("POST /d2/jr HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n");
  peer.say("2;ext=1\r\nbc\r\n0\r\nTrailer: x\r\n\r\n");
  EXPECT_THAT(peer.hear(), EndsWith("\r\n\r\nabc"));
}

TEST_F(HTTP_Server_Test, ServiceAnswersLaterFromAnotherThread) {
  start();
  Raw_Peer peer = this->peer();
  peer.say(post("keep"));
  EXPECT_EQ(0, service_.kept()->reply(200, "late"));
  EXPECT_EQ(-1, service_.kept()->reply(200, "again"));
  EXPECT_THAT(peer.hear(), EndsWith("\r\n\r\nlate"));
  EXPECT_TRUE(eventually([this] { return !service_.token_is_held(); }));
}

TEST_F(HTTP_Server_Test, RequestThatIsNeverAnsweredEndsWith504AndTheConnectionGoesOn) {
  options_.limits.answer = milliseconds(50);
  start();
  Raw_Peer peer = this->peer();
  peer.say(post("keep"));
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 504 Gateway Timeout\r\n"));
  EXPECT_EQ(-1, service_.kept()->reply(200, "late"));
  EXPECT_FALSE(service_.token_is_held());
  peer.say(post("next"));
  EXPECT_THAT(peer.hear(), EndsWith("\r\n\r\nnext"));
}

TEST_F(HTTP_Server_Test, PeerThatGoesWhileItsAnswerIsMadeIsNoticed) {
  start();
  Raw_Peer peer = this->peer();
  peer.say(post("keep"));
  const auto exchange = service_.kept();
  EXPECT_TRUE(service_.token_is_held());
  peer.hang_up();
  EXPECT_TRUE(eventually([this] { return !service_.token_is_held(); }));
  EXPECT_EQ(-1, exchange->reply(200, "late"));
}

TEST_F(HTTP_Server_Test, CloseEndsConnectionsAndPendingRequests) {
  start();
  Raw_Peer waiting = peer();
  Raw_Peer idle = peer();
  waiting.say(post("keep"));
  const auto exchange = service_.kept();
  server_->close();
  EXPECT_TRUE(waiting.ends());
  EXPECT_TRUE(idle.ends());
  EXPECT_EQ(-1, exchange->reply(200, "late"));
  EXPECT_FALSE(peer().ok());
  server_->close();
}

TEST_F(HTTP_Server_Test, UnixSocketIsForItsOwnerAloneAndGoesAtTheEnd) {
  start();
  struct stat status;
  ASSERT_EQ(0, lstat(socket_.c_str(), &status));
  EXPECT_EQ(static_cast<mode_t>(S_IFSOCK | 0600), status.st_mode);
  server_->close();
  EXPECT_EQ(-1, lstat(socket_.c_str(), &status));
}

TEST_F(HTTP_Server_Test, SocketThatACrashLeftIsReplaced) {
  {
    // Bound, never closed in an orderly way.
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socket_.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address));
    close(fd);
  }
  start();
  EXPECT_TRUE(peer().ok());
}

TEST_F(HTTP_Server_Test, SocketThatAnotherServerListensOnIsLeftAlone) {
  start();
  HTTP_Server second(service_, options_);
  EXPECT_EQ(-1, second.listen_unix(socket_));
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "Address already in use"));
  second.close();
  EXPECT_TRUE(peer().ok());
}

TEST_F(HTTP_Server_Test, FileAtThePlaceOfTheSocketIsLeftAlone) {
  dir_.write("agent.sock", "precious");
  HTTP_Server server(service_, options_);
  EXPECT_EQ(-1, server.listen_unix(socket_));
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "File exists"));
  EXPECT_EQ("precious", test_support::read_file(socket_));
}

TEST_F(HTTP_Server_Test, PathTooLongForASocketIsRefused) {
  HTTP_Server server(service_, options_);
  EXPECT_EQ(-1, server.listen_unix("/" + std::string(108, 'x')));
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "File name too long"));
}

TEST_F(HTTP_Server_Test, OnlyLoopbackAddressesAreListenedOn) {
  HTTP_Server server(service_, options_);
  for (const char* address : {"0.0.0.0", "::", "192.0.2.1", "10.0.0.1"}) {
    EXPECT_EQ(-1, server.listen_tcp(address, 0, "secret")) << address;
    EXPECT_TRUE(log_.has(LM_ERROR, std::string("Failed to listen on ") + address +
                                       " port 0: only loopback addresses go without TLS.\n"));
  }
  EXPECT_EQ(-1, server.listen_tcp("localhost", 0, "secret"));
  EXPECT_EQ(0u, server.port());
}

TEST_F(HTTP_Server_Test, WithoutATokenTCPIsNotOpened) {
  HTTP_Server server(service_, options_);
  EXPECT_EQ(-1, server.listen_tcp("127.0.0.1", 0, ""));
}

TEST_F(HTTP_Server_Test, CallerByTCPNeedsTheToken) {
  start();
  for (const char* field :
       {"", "Authorization: Bearer wrong\r\n", "Authorization: Basic secret\r\n", "Authorization: Bearer\r\n"}) {
    Raw_Peer peer = tcp_peer();
    peer.say(post("x", field));
    const std::string answer = peer.hear_all();
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 401 Unauthorized\r\n")) << field;
    EXPECT_THAT(answer, HasSubstr("WWW-Authenticate: Bearer\r\n"));
  }
  EXPECT_EQ(0u, service_.posts());
}

TEST_F(HTTP_Server_Test, CallerByTCPWithTheTokenIsServed) {
  start();
  Raw_Peer peer = tcp_peer();
  peer.say(post("x", "Authorization: Bearer secret\r\n"));
  EXPECT_THAT(peer.hear(), EndsWith("\r\n\r\nx"));
  peer.say(post("y"));  // each request shows it
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 401 "));
}

TEST_F(HTTP_Server_Test, TokenIsAskedForBeforeAnythingElseIsTold) {
  start();
  Raw_Peer peer = tcp_peer();
  peer.say("GET /nowhere HTTP/1.1\r\n\r\n");
  EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 401 "));
}

}  // namespace
