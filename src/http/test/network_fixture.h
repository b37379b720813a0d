#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include "http/http_session_factory.h"
#include "http/json_http_session.h"
#include "support/fake_clock.h"
#include "support/kube_sim/front.h"
#include "support/kube_sim/service_account.h"
#include "support/kube_sim/test/simple_api.h"
#include "support/log_capture.h"

/// A pod with a token and an API server over TLS. For SANDBOX tests.
class Network_Test : public testing::Test {
 protected:
  typedef kube_sim::Certificate_Kind Kind;

  static HTTP_Session_var session(unsigned short port, int timeout = 20, const std::string& host = "127.0.0.1",
                                  bool ssl = true) {
    return HTTP_Session_Factory::create(host, port, ssl, nullptr, DEFAULT_IDLE_CONNECTIONS, nullptr, false, timeout,
                                        timeout, timeout, 0);
  }
  /// A GET with the token.   @param port  0: that of the usual front.
  bool get(JSON_HTTP_Session& session, const char* uri = "/api") {
    request_.reset();
    request_.headers().put("Authorization", ("Bearer " + account_.token()).c_str(), true);
    request_.uri(uri, true);
    return session.get(request_, response_, value_);
  }
  bool post(JSON_HTTP_Session& session, const json_spirit::Value& body = json_spirit::Object()) {
    request_.reset();
    request_.uri("/api", true);
    return session.post(request_, &body, response_, &value_);
  }
  void fault(kube_sim::Fault::End end, std::size_t body_bytes = 0, int nth = 1, int count = 1) {
    kube_sim::Fault fault;
    fault.end = end;
    fault.body_bytes = body_bytes;
    front_.fail({"", "", nth, count}, fault);
  }
  static std::string ca_path() { return std::string(kube_sim::Service_Account::directory) + "/ca.crt"; }

  kube_sim_test::Simple_Api api_;
  kube_sim::Certificates certificates_;
  kube_sim::Front front_{api_, {.certificates = &certificates_}};
  kube_sim::Service_Account account_{front_, "canary-token"};
  test_support::Fake_Clock clock_;
  HTTP_Request request_;
  HTTP_Response response_;
  json_spirit::Value value_;
  test_support::Log_Capture log_;

  void SetUp() override {
    api_.on_request = [](const kube_sim::Request&) {
      return kube_sim::Answer{200, "application/json", "{\"a\":1}", {}};
    };
  }
};
