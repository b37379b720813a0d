// The WebSocket client: handshake, messages, time-outs, the end.
#include <openssl/sha.h>

#include "ace/Time_Value.h"
#include "http/test/network_fixture.h"
#include "http/test/raw_server.h"
#include "http/websocket_connection_factory.h"
#include "kolt/base64_encoder.h"

namespace {

using kube_sim::Exec_Stream;
using kube_sim::Request;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char v4[] = "v4.channel.k8s.io";

class WebSocket_Client : public Network_Test {
 protected:
  typedef std::unique_ptr<WebSocket_Connection> Socket;

  static Socket make(unsigned short port, bool ssl = true, int timeout = 20) {
    Socket socket = WebSocket_Connection_Factory::create("127.0.0.1", port, ssl, nullptr, nullptr, false, timeout);
    socket->configure(600);
    socket->request().headers().put("sec-websocket-protocol", v4, true);
    socket->request().headers().put("Authorization", "Bearer canary-token", true);
    socket->request().uri("/exec?command=ls&x=a%20b", true);
    return socket;
  }
  /// Opened at the front, which runs @a body.
  Socket opened(std::function<void(Exec_Stream&)> body) {
    api_.on_exec = [body] { return std::make_unique<kube_sim_test::Simple_Exec>(body); };
    Socket socket = make(front_.port());
    EXPECT_EQ(0, socket->connect());
    EXPECT_EQ(0, socket->handshake());
    return socket;
  }
  /// The next message, or "end n" with what receive() gave.
  static std::string next(WebSocket_Connection& socket, const ACE_Time_Value* timeout = nullptr) {
    const char* data = nullptr;
    std::size_t length = 0;
    unsigned char opcode = 0;
    const ssize_t n = socket.receive(data, length, opcode, timeout);
    if (n <= 0) return "end " + std::to_string(n);
    EXPECT_EQ(static_cast<std::size_t>(n), length);
    return {data, length};
  }
  static double seconds_of(const std::function<void()>& body) {
    const auto begin = steady_clock::now();
    body();
    return std::chrono::duration<double>(steady_clock::now() - begin).count();
  }
};

TEST_F(WebSocket_Client, goes_through_its_states) {
  api_.on_exec = [] { return std::make_unique<kube_sim_test::Simple_Exec>([](Exec_Stream&) {}); };
  const Socket socket = make(front_.port());
  EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
  EXPECT_EQ(0, socket->connect());
  EXPECT_EQ(HTTP_SOCK_STATE_CONNECTED, socket->state());
  EXPECT_EQ(0, socket->handshake());
  EXPECT_EQ(HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED, socket->state());
  EXPECT_EQ("end 0", next(*socket));
  EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
  EXPECT_EQ("", log_.all());
}

TEST_F(WebSocket_Client, sends_uri_and_headers_of_its_request) {
  opened([](Exec_Stream&) {});
  const Request request = front_.requests().at(0);
  EXPECT_EQ("GET", request.method);
  EXPECT_EQ("/exec?command=ls&x=a%20b", request.target);
  EXPECT_EQ("Bearer canary-token", request.header("authorization"));
  EXPECT_EQ(v4, request.header("sec-websocket-protocol"));
  EXPECT_EQ("127.0.0.1:" + std::to_string(front_.port()), request.header("host"));
}

TEST_F(WebSocket_Client, a_message_is_given_with_its_channel_byte) {
  const Socket socket = opened([](Exec_Stream& stream) {
    stream.send(1, "");
    stream.send(1, "out");
    stream.send(2, "err");
    stream.send(3, "{}");
  });
  EXPECT_EQ("\x01", next(*socket));
  EXPECT_EQ("\x01out", next(*socket));
  EXPECT_EQ(
      "\x02"
      "err",
      next(*socket));
  EXPECT_EQ("\x03{}", next(*socket));
  EXPECT_EQ("end 0", next(*socket));
}

TEST_F(WebSocket_Client, tells_text_from_binary) {
  const Socket socket = opened([](Exec_Stream& stream) {
    stream.send_raw("text", true);
    stream.send_raw("binary", false);
  });
  const char* data;
  std::size_t length;
  unsigned char opcode;
  EXPECT_EQ(4, socket->receive(data, length, opcode, nullptr));
  EXPECT_EQ(1, opcode);
  EXPECT_EQ(6, socket->receive(data, length, opcode, nullptr));
  EXPECT_EQ(2, opcode);
}

TEST_F(WebSocket_Client, an_empty_message_is_passed_over) {
  const Socket socket = opened([](Exec_Stream& stream) {
    stream.send_raw("", false);
    stream.send(1, "a");
  });
  EXPECT_EQ(
      "\x01"
      "a",
      next(*socket));
}

TEST_F(WebSocket_Client, many_messages_at_once_are_all_given) {
  const Socket socket = opened([](Exec_Stream& stream) {
    for (int i = 0; i < 1000; ++i) stream.send(1, std::to_string(i));
  });
  for (int i = 0; i < 1000; ++i) ASSERT_EQ("\x01" + std::to_string(i), next(*socket));
  EXPECT_EQ("end 0", next(*socket));
}

TEST_F(WebSocket_Client, a_large_message_is_whole) {
  const std::string text(5'000'000, 'x');
  const Socket socket = opened([&](Exec_Stream& stream) { stream.send(1, text); });
  EXPECT_EQ('\x01' + text, next(*socket));
}

TEST_F(WebSocket_Client, a_message_that_is_too_large_is_a_failure) {
  const Socket socket = opened([](Exec_Stream& stream) { stream.send(1, std::string(33 * 1024 * 1024, 'x')); });
  EXPECT_EQ("end -1", next(*socket));
  EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
  EXPECT_EQ(1u, log_.texts(LM_ERROR).size());
}

TEST_F(WebSocket_Client, a_stream_without_a_close_frame_is_a_failure) {
  const Socket socket = opened([](Exec_Stream& stream) {
    stream.send(1, "part");
    stream.drop();
  });
  EXPECT_EQ("\x01part", next(*socket));
  EXPECT_EQ("end -1", next(*socket));
  EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(HasSubstr("Failed to receive from 127.0.0.1:")));
}

TEST_F(WebSocket_Client, after_the_end_nothing_is_received) {
  const Socket socket = opened([](Exec_Stream&) {});
  EXPECT_EQ("end 0", next(*socket));
  EXPECT_EQ("end -1", next(*socket));
}

TEST_F(WebSocket_Client, a_refusal_is_logged_with_status_and_body) {
  const Socket socket = make(front_.port());
  EXPECT_EQ(0, socket->connect());
  EXPECT_EQ(-1, socket->handshake());
  EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(HasSubstr("status 404: 404 page not found")));
  EXPECT_EQ(log_.all().find("canary"), std::string::npos);
}

TEST_F(WebSocket_Client, steps_out_of_order_fail) {
  const Socket socket = make(front_.port());
  EXPECT_EQ(-1, socket->handshake());
  EXPECT_EQ("end -1", next(*socket));
  socket->close();
  EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
}

TEST_F(WebSocket_Client, a_server_that_is_not_there_is_a_failure) {
  unsigned short port;
  {
    const kube_sim::Front gone(api_);
    port = gone.port();
  }
  const Socket socket = make(port);
  EXPECT_EQ(-1, socket->connect());
  EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(HasSubstr("Failed to connect to 127.0.0.1:")));
}

TEST_F(WebSocket_Client, a_token_with_a_line_end_is_not_sent) {
  const Socket socket = make(front_.port());
  socket->request().headers().put("Authorization", "Bearer x\r\nHost: y", true);
  EXPECT_EQ(0, socket->connect());
  EXPECT_EQ(-1, socket->handshake());
  EXPECT_TRUE(front_.requests().empty());
}

TEST_F(WebSocket_Client, an_ssl_context_or_no_host_is_refused) {
  const auto context = reinterpret_cast<ACE_SSL_Context*>(this);
  EXPECT_FALSE(WebSocket_Connection_Factory::create("h", 1, true, nullptr, context, false, 1));
  EXPECT_FALSE(WebSocket_Connection_Factory::create("", 1, true, nullptr, nullptr, false, 1));
  EXPECT_EQ(2u, log_.texts(LM_ERROR).size());
}

TEST_F(WebSocket_Client, the_other_end_may_be_named_by_an_ipv6_address) {
  const kube_sim::Front front(api_, {.address = "::1", .certificates = &certificates_});
  for (const char* host : {"::1", "[::1]"}) {
    const Socket socket = WebSocket_Connection_Factory::create(host, front.port(), true, nullptr, nullptr, false, 20);
    EXPECT_EQ(0, socket->connect());
  }
  EXPECT_THAT(log_.texts(LM_ERROR), testing::IsEmpty());
}

// Time-outs.

TEST_F(WebSocket_Client, the_time_out_bounds_the_wait_for_a_message) {
  const Socket socket = opened([](Exec_Stream& stream) {
    while (stream.open()) std::this_thread::sleep_for(milliseconds(10));
  });
  const ACE_Time_Value timeout(0, 300000);
  EXPECT_LT(seconds_of([&] { EXPECT_EQ("end -1", next(*socket, &timeout)); }), 10);
  EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(HasSubstr("no message in time")));
}

TEST_F(WebSocket_Client, pings_do_not_restart_the_time_out) {
  const Socket socket = opened([](Exec_Stream& stream) {
    while (stream.ping()) std::this_thread::sleep_for(milliseconds(50));
  });
  const ACE_Time_Value timeout(1);
  EXPECT_LT(seconds_of([&] { EXPECT_EQ("end -1", next(*socket, &timeout)); }), 10);
}

TEST_F(WebSocket_Client, a_message_in_time_is_given_whatever_the_time_out_counts_up_to) {
  const Socket socket = opened([](Exec_Stream& stream) { stream.send(1, "a"); });
  const ACE_Time_Value longest = ACE_Time_Value::max_time;
  EXPECT_EQ(
      "\x01"
      "a",
      next(*socket, &longest));
}

TEST_F(WebSocket_Client, a_server_that_never_answers_the_handshake_is_left) {
  Raw_Server server([](Raw_Server::Peer& peer) { peer.read_to("never"); });
  for (const bool ssl : {true, false}) {
    const Socket socket = make(server.port(), ssl, 1);
    EXPECT_LT(seconds_of([&] { EXPECT_EQ(-1, socket->connect() == 0 ? socket->handshake() : -1); }), 10);
    EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
  }
  EXPECT_EQ(2u, log_.texts(LM_ERROR).size());
}

TEST_F(WebSocket_Client, close_does_not_wait_for_a_server_that_does_not_answer) {
  const Socket socket = opened([](Exec_Stream& stream) {
    while (stream.send(1, std::string(1000, 'x'))) continue;
  });
  EXPECT_LT(seconds_of([&] { socket->close(); }), 10);
  EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
}

TEST_F(WebSocket_Client, close_tells_the_server) {
  std::atomic<bool> gone = false;
  const Socket socket = opened([&](Exec_Stream& stream) {
    std::string frame;
    while (stream.open()) stream.receive(frame, milliseconds(10));
    gone = true;
  });
  socket->close();
  EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
  while (!gone) std::this_thread::sleep_for(milliseconds(1));
}

// What a server has to say frame by frame.

std::string accept_key(const std::string& head) {
  const std::string name = "Sec-WebSocket-Key: ";
  const std::size_t begin = head.find(name) + name.size();
  const std::string text = head.substr(begin, head.find('\r', begin) - begin) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
  unsigned char digest[SHA_DIGEST_LENGTH];
  ::SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
  return base64_encode({reinterpret_cast<const char*>(digest), sizeof digest});
}

class WebSocket_Frames : public WebSocket_Client {
 protected:
  /// Opened at a server which then does @a script.
  Socket opened(Raw_Server::Script script, int idle = 600, const std::string& protocol = v4) {
    server_ = std::make_unique<Raw_Server>([script, protocol](Raw_Server::Peer& peer) {
      const std::string head = peer.read_to("\r\n\r\n");
      peer.write(
          "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
          accept_key(head) + (protocol.empty() ? "" : "\r\nSec-WebSocket-Protocol: " + protocol) + "\r\n\r\n");
      script(peer);
    });
    Socket socket = make(server_->port(), false);
    socket->configure(idle);
    EXPECT_EQ(0, socket->connect());
    handshake_ = socket->handshake();
    return socket;
  }

  std::unique_ptr<Raw_Server> server_;
  int handshake_ = 0;
};

TEST_F(WebSocket_Frames, fragments_are_one_message) {
  const Socket socket = opened([](Raw_Server::Peer& peer) {
    peer.write(std::string("\x02\x02\x01") + "a" + "\x89" + std::string(1, '\0') + std::string("\x00\x01", 2) + "b" +
               "\x80\x01" + "c" + std::string("\x88\x00", 2));
    peer.read_to("never");
  });
  EXPECT_EQ(
      "\x01"
      "abc",
      next(*socket));
  EXPECT_EQ("end 0", next(*socket));
}

TEST_F(WebSocket_Frames, a_server_that_takes_another_sub_protocol_or_none_is_left) {
  for (const char* protocol : {"v5.channel.k8s.io", ""}) {
    log_.clear();
    const Socket socket = opened([](Raw_Server::Peer&) {}, 600, protocol);
    EXPECT_EQ(-1, handshake_);
    EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
    EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(HasSubstr("sub-protocol")));
  }
}

TEST_F(WebSocket_Frames, empty_fragments_without_end_are_a_failure) {
  const Socket socket = opened([](Raw_Server::Peer& peer) {
    peer.write(std::string("\x02\x01\x01"));
    std::string fragments;
    for (int i = 0; i < 2000; ++i) fragments += std::string(100, '\0') + std::string("\x89\x00", 2);  // 50, and a ping
    while (peer.write(fragments)) continue;
  });
  EXPECT_EQ("end -1", next(*socket));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(HasSubstr("fragments")));
}

TEST_F(WebSocket_Frames, a_close_frame_ends_the_stream_though_the_server_keeps_the_connection) {
  const Socket socket = opened([](Raw_Server::Peer& peer) {
    peer.write(std::string("\x88\x02\x03\xE8", 4));
    peer.read_to("never");
  });
  EXPECT_LT(seconds_of([&] { EXPECT_EQ("end 0", next(*socket)); }), 10);
  EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, socket->state());
}

TEST_F(WebSocket_Frames, a_masked_frame_or_an_unknown_opcode_is_a_failure) {
  for (const std::string& frame : {std::string("\x82\x81mask\x01", 7), std::string("\x83\x00", 2)}) {
    const Socket socket = opened([&](Raw_Server::Peer& peer) {
      peer.write(frame);
      peer.read_to("never");
    });
    EXPECT_EQ("end -1", next(*socket));
  }
}

TEST_F(WebSocket_Frames, a_connection_without_traffic_is_dead_after_the_idle_time) {
  const Socket socket = opened([](Raw_Server::Peer& peer) { peer.read_to("never"); }, 1);
  EXPECT_LT(seconds_of([&] { EXPECT_EQ("end -1", next(*socket)); }), 10);
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(HasSubstr("the connection is dead")));
}

TEST_F(WebSocket_Client, a_silent_connection_that_answers_pings_lives) {
  const Socket socket = opened([](Exec_Stream& stream) {
    std::string frame;
    const auto end = steady_clock::now() + milliseconds(4500);
    while (stream.open() && steady_clock::now() < end) stream.receive(frame, milliseconds(10));
    stream.send(1, "late");
  });
  socket->configure(2);
  EXPECT_EQ("\x01late", next(*socket)) << log_.all();
}

}  // namespace
