// Watches and exec connections.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/kube_sim/front.h"
#include "support/kube_sim/test/simple_api.h"
#include "support/kube_sim/test/tls_peer.h"

using namespace kube_sim;
using namespace kube_sim_test;
using std::chrono::milliseconds;

namespace {

constexpr char v4[] = "v4.channel.k8s.io";

struct Front_Stream_Test : testing::Test {
  Simple_Api api;
  Front front{api};
  Tls_Peer peer{front.port(), front.ca()};

  void exec(std::function<void(Exec_Stream&)> body) {
    api.on_exec = [body] { return std::make_unique<Simple_Exec>(body); };
  }
};

TEST_F(Front_Stream_Test, a_watch_is_sent_line_by_line_and_keeps_the_connection) {
  api.on_watch = [](const Request&, Watch_Sink& sink) {
    return sink.start() && sink.send("{1}\n") && sink.send("{2}\n");
  };
  const Reply reply = peer.reply_to("/a?watch=true");
  EXPECT_EQ(reply.headers.at("transfer-encoding"), "chunked");
  EXPECT_EQ(reply.headers.at("content-type"), "application/json");
  EXPECT_EQ(reply.body, "{1}\n{2}\n");
  EXPECT_EQ(peer.reply_to("/b").body, "GET /b");
}

TEST_F(Front_Stream_Test, the_head_of_a_watch_and_each_line_arrive_at_once) {
  std::atomic<bool> go = false;
  api.on_watch = [&](const Request&, Watch_Sink& sink) {
    sink.start();
    while (!go) std::this_thread::sleep_for(milliseconds(1));
    sink.send("late\n");
    return true;
  };
  peer.get("/a?watch=true");
  EXPECT_THAT(peer.read_to("\r\n\r\n"), testing::StartsWith("HTTP/1.1 200 OK"));
  go = true;
  EXPECT_THAT(peer.read_to("late\n"), testing::EndsWith("late\n"));
}

TEST_F(Front_Stream_Test, what_the_api_does_not_watch_is_answered) {
  EXPECT_EQ(peer.reply_to("/a?watch=true").body, "GET /a");
}

TEST_F(Front_Stream_Test, a_watch_hears_that_its_client_has_gone) {
  std::atomic<bool> ended = false;
  api.on_watch = [&](const Request&, Watch_Sink& sink) {
    sink.start();
    while (sink.open()) std::this_thread::sleep_for(milliseconds(1));
    return ended = true;
  };
  auto other = std::make_unique<Tls_Peer>(front.port(), front.ca());
  other->get("/a?watch=true");
  other->read_to("\r\n\r\n");
  EXPECT_FALSE(ended);
  other.reset();
  while (!ended) std::this_thread::sleep_for(milliseconds(1));
}

TEST_F(Front_Stream_Test, exec_sends_frames_with_their_channel_and_closes_with_1000) {
  exec([](Exec_Stream& stream) {
    stream.send(1, "");
    stream.send(2, "oops");
  });
  const Reply reply = peer.upgrade("/exec", v4);
  EXPECT_EQ(reply.status, 101);
  EXPECT_EQ(reply.headers.at("sec-websocket-protocol"), v4);
  EXPECT_EQ(peer.frame().payload, "\x01");
  const Frame second = peer.frame();
  EXPECT_EQ(second.opcode, 2);
  EXPECT_EQ(second.payload, "\x02oops");
  const Frame last = peer.frame();
  EXPECT_EQ(last.opcode, 8);
  EXPECT_EQ(last.payload, "\x03\xe8");
  peer.send_frame(8, "\x03\xe8");
  EXPECT_EQ(peer.state(), State::CLOSED);
}

TEST_F(Front_Stream_Test, exec_closes_though_the_client_does_not_answer_the_close_frame) {
  exec([](Exec_Stream&) {});
  peer.upgrade("/exec", v4);
  EXPECT_EQ(peer.frame().opcode, 8);
  EXPECT_EQ(peer.state(milliseconds(5000)), State::CLOSED);
}

TEST_F(Front_Stream_Test, exec_reads_the_frames_of_the_client) {
  exec([](Exec_Stream& stream) {
    std::string frame;
    for (int i = 0; i < 2 && stream.receive(frame, std::chrono::seconds(10)); ++i) stream.send(1, frame);
  });
  peer.upgrade("/exec", v4);
  peer.send_frame(2, std::string("\0one", 4));
  peer.send_frame(2, std::string("\0two", 4));
  EXPECT_EQ(peer.frame().payload, std::string("\1\0one", 5));
  EXPECT_EQ(peer.frame().payload, std::string("\1\0two", 5));
}

TEST_F(Front_Stream_Test, exec_waits_for_a_frame_no_longer_than_told) {
  exec([](Exec_Stream& stream) {
    std::string frame;
    stream.send(1, stream.receive(frame, milliseconds(20)) ? "frame" : "none");
  });
  peer.upgrade("/exec", v4);
  EXPECT_EQ(peer.frame().payload, "\1none");
}

TEST_F(Front_Stream_Test, exec_answers_pings_while_it_waits) {
  exec([](Exec_Stream& stream) {
    std::string frame;
    stream.receive(frame, std::chrono::seconds(10));
  });
  peer.upgrade("/exec", v4);
  peer.send_frame(9, "are you there");
  const Frame pong = peer.frame();
  EXPECT_EQ(pong.opcode, 10);
  EXPECT_EQ(pong.payload, "are you there");
}

TEST_F(Front_Stream_Test, exec_pings) {
  exec([](Exec_Stream& stream) { stream.ping(); });
  peer.upgrade("/exec", v4);
  EXPECT_EQ(peer.frame().opcode, 9);
}

TEST_F(Front_Stream_Test, exec_hears_that_its_client_has_gone) {
  std::atomic<bool> ended = false;
  exec([&](Exec_Stream& stream) {
    while (stream.open()) std::this_thread::sleep_for(milliseconds(1));
    ended = true;
  });
  auto other = std::make_unique<Tls_Peer>(front.port(), front.ca());
  EXPECT_EQ(other->upgrade("/exec", v4).status, 101);
  other.reset();
  while (!ended) std::this_thread::sleep_for(milliseconds(1));
}

TEST_F(Front_Stream_Test, exec_drops_without_a_close_frame) {
  exec([](Exec_Stream& stream) { stream.drop(); });
  EXPECT_EQ(peer.upgrade("/exec", v4).status, 101);
  EXPECT_EQ(peer.frame().opcode, -1);
  EXPECT_EQ(peer.state(), State::CLOSED);
}

TEST_F(Front_Stream_Test, exec_ends_with_its_front) {
  exec([](Exec_Stream& stream) {
    while (stream.open()) std::this_thread::sleep_for(milliseconds(5));
  });
  auto own = std::make_unique<Front>(api);
  Tls_Peer client(own->port(), own->ca());
  client.upgrade("/exec", v4);
  own.reset();
  EXPECT_EQ(client.frame().opcode, -1);
}

TEST_F(Front_Stream_Test, exec_without_a_protocol_is_agreed_to_with_an_empty_one) {
  exec([](Exec_Stream& stream) { stream.send(1, stream.protocol()); });
  const Reply reply = peer.upgrade("/exec", "");
  EXPECT_EQ(reply.status, 101);
  EXPECT_EQ(reply.headers.at("sec-websocket-protocol"), "");
  EXPECT_EQ(peer.frame().payload, "\1");
}

TEST_F(Front_Stream_Test, exec_takes_the_first_protocol_that_it_knows) {
  exec([](Exec_Stream&) {});
  EXPECT_EQ(peer.upgrade("/exec", "v9.example.com, v5.channel.k8s.io, v4.channel.k8s.io")
                .headers.at("sec-websocket-protocol"),
            "v5.channel.k8s.io");
}

TEST_F(Front_Stream_Test, exec_refuses_an_unknown_protocol) {
  exec([](Exec_Stream&) {});
  const Reply reply = peer.upgrade("/exec", "v9.channel.example.com");
  EXPECT_EQ(reply.status, 403);
  EXPECT_EQ(reply.body, "");
  EXPECT_EQ(peer.state(), State::CLOSED);
}

TEST_F(Front_Stream_Test, exec_encodes_frames_of_the_base64_protocol) {
  exec([](Exec_Stream& stream) {
    std::string frame;
    stream.receive(frame, std::chrono::seconds(10));
    stream.send(1, frame.substr(1));
  });
  peer.upgrade("/exec", "base64.channel.k8s.io");
  peer.send_frame(1, "0aGVsbG8K");
  const Frame frame = peer.frame();
  EXPECT_EQ(frame.opcode, 1);
  EXPECT_EQ(frame.payload, "1aGVsbG8K");
}

TEST_F(Front_Stream_Test, an_upgrade_that_the_api_refuses_is_an_ordinary_answer) {
  const Reply reply = peer.upgrade("/nothing", v4);
  EXPECT_EQ(reply.status, 404);
  EXPECT_EQ(reply.body, "404 page not found\n");
  EXPECT_EQ(peer.reply_to("/a").body, "GET /a");
}

TEST_F(Front_Stream_Test, an_upgrade_by_post_is_refused) {
  peer.send("POST /exec HTTP/1.1\r\nHost: h\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nContent-Length: 0\r\n\r\n");
  const Reply reply = peer.reply();
  EXPECT_EQ(reply.status, 405);
  EXPECT_EQ(reply.body, "bad method");
}

TEST_F(Front_Stream_Test, ten_megabytes_arrive_whole) {
  const std::string part(32768, 'x');
  exec([&](Exec_Stream& stream) {
    for (int i = 0; i < 320; ++i) stream.send(1, part);
  });
  peer.upgrade("/exec", v4);
  size_t total = 0;
  for (Frame frame = peer.frame(); frame.opcode == 2; frame = peer.frame()) total += frame.payload.size() - 1;
  EXPECT_EQ(total, 320u * 32768);
}

}  // namespace
