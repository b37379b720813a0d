#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "support/fake_clock.h"
#include "support/kube_sim/front.h"
#include "support/kube_sim/scripted_api.h"
#include "support/kube_sim/service_account.h"
#include "support/log_capture.h"

namespace k8s_test {

/// What the server does with one exec connection.
typedef std::function<void(kube_sim::Exec_Stream&)> Script;

class Scripted_Exec : public kube_sim::Exec {
 public:
  explicit Scripted_Exec(Script script) : script_(std::move(script)) {}
  void run(kube_sim::Exec_Stream& stream) override { script_(stream); }

 private:
  const Script script_;
};

/// Serves every exec connection with one script.
class Exec_Api : public kube_sim::Api {
 public:
  Script script;       ///< set before the connection is made
  std::string refuse;  ///< not empty: every upgrade is refused with this text and status 500

  kube_sim::Answer answer(const kube_sim::Request&) override { return kube_sim::json_answer(404, "{}"); }
  std::unique_ptr<kube_sim::Exec> exec(const kube_sim::Request&, kube_sim::Answer& refusal) override {
    if (refuse.empty()) return std::make_unique<Scripted_Exec>(script);
    refusal.status = 500;
    refusal.content_type = "text/plain";
    refusal.body = refuse;
    return nullptr;
  }
};

/// The status frames of a command that has ended.
constexpr char success[] = R"({"metadata":{},"status":"Success"})";
constexpr char exit_code_3[] =
    R"({"metadata":{},"status":"Failure","message":"command terminated with non-zero exit code: exit status 3",)"
    R"("reason":"NonZeroExitCode","details":{"causes":[{"reason":"ExitCode","message":"3"}]}})";

/// A test whose process stands in a pod of a cluster with this API. Its time flies, and its log is caught; the token
/// must never be in it.
template <typename Api>
class In_Cluster_T : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(log_.all().find(account_.token()), std::string::npos) << log_.all(); }

  Api api_;
  kube_sim::Front front_{api_};
  kube_sim::Service_Account account_{front_};
  test_support::Fake_Clock clock_;
  test_support::Log_Capture log_;
};

}  // namespace k8s_test
