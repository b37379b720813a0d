#pragma once

#include <cstdlib>

#include "json_spirit/dump.h"
#include "k8s/api/k8s_cluster.h"
#include "kolt/string_sprintf.h"
#include "support/kube_sim/scripted_api.h"
#include "support/kube_sim/service_account.h"
#include "support/log_capture.h"
#include "support/recorded.h"

namespace test_support {

/// What the deployment tells a process about the auxiliary agents.
class Aux_Environment {
 public:
  Aux_Environment() {
    set("AUX_KEY", "app");
    set("AUX_VALUE", "aux");
    set("AUX_PORT", "9100");
    set("CURRENT_NAMESPACE", "agents");
  }
  ~Aux_Environment() {
    for (const char* name : {"AUX_KEY", "AUX_VALUE", "AUX_PORT", "CURRENT_NAMESPACE"}) unsetenv(name);
  }
  void set(const char* name, const char* value) { setenv(name, value, 1); }
};

/// A process in a pod of a cluster whose API server answers by a script, over TLS.
class Cluster_Fixture : public testing::Test {
 protected:
  ~Cluster_Fixture() override { EXPECT_EQ(api.verify(), ""); }

  void expect(const std::string& target, int status, const std::string& body) {
    api.expect("GET", target, kube_sim::json_answer(status, body));
  }
  void expect(const Step& step) {
    kube_sim::Answer answer = kube_sim::json_answer(step.status, step.reply);
    if (step.reply.empty()) {
      answer.content_type = "text/plain; charset=utf-8";
      answer.body = "404 page not found\n";
    }
    api.expect("GET", step.request.substr(4), answer);
  }

  std::vector<std::string> errors() const { return log.texts(LM_ERROR); }
  /// The examined expressions of the lines at LM_EMERGENCY.
  std::vector<std::string> emergencies() const {
    std::vector<std::string> result;
    for (const std::string& text : log.texts(LM_EMERGENCY)) {
      const std::size_t comma = text.find(", ");
      result.push_back(text.substr(comma + 2, text.find('\n') - comma - 2));
    }
    return result;
  }

  kube_sim::Scripted_Api api;
  kube_sim::Front front{api};
  kube_sim::Service_Account account{front};
  Aux_Environment environment;
  Log_Capture log;
};

}  // namespace test_support
