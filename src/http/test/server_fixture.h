#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "http/http_server.h"
#include "http/test/raw_peer.h"
#include "http/test/scripted_service.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

/// A server on a unix socket and on loopback with the token "secret". A test may change the options before start().
class HTTP_Server_Fixture : public testing::Test {
 protected:
  HTTP_Server_Fixture() { options_.path = "/d2/jr"; }

  void start() {
    server_ = std::make_unique<HTTP_Server>(service_, options_);
    ASSERT_EQ(0, server_->listen_unix(socket_)) << log_.all();
    ASSERT_EQ(0, server_->listen_tcp("127.0.0.1", 0, "secret")) << log_.all();
    ASSERT_EQ(0, server_->start()) << log_.all();
  }

  Raw_Peer peer() { return Raw_Peer::to_unix(socket_); }
  Raw_Peer tcp_peer() { return Raw_Peer::to_tcp(server_->port()); }

  /// What the server says to one text, up to the end of the connection.
  std::string conversation(const std::string& text) {
    Raw_Peer peer = this->peer();
    peer.say(text);
    return peer.hear_all();
  }

  static bool eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
  }

  test_support::Log_Capture log_;
  test_support::Temp_Dir dir_;
  const std::string socket_ = dir_ / "agent.sock";
  HTTP_Server_Options options_;
  Scripted_Service service_;
  std::unique_ptr<HTTP_Server> server_;
};
