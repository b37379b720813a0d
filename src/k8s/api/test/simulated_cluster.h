#pragma once

#include <filesystem>
#include <functional>

#include "cluster_fixture.h"
#include "http/websocket_options.h"
#include "json_spirit/extract.h"
#include "support/kube_sim/cluster.h"

namespace test_support {

/// A cluster whose pods can run commands.
class Exec_Cluster : public kube_sim::Cluster {
 public:
  typedef std::function<std::unique_ptr<kube_sim::Exec>(const kube_sim::Request&)> Make_Exec;

  std::unique_ptr<kube_sim::Exec> exec(const kube_sim::Request& request, kube_sim::Answer&) override {
    return make_exec ? make_exec(request) : nullptr;
  }

  Make_Exec make_exec;  // none: no pod can run anything
};

/// A process in a pod of a simulated cluster without controllers, which K8S_Cluster knows, and the agent of its one
/// node, which answers by a script.
class Simulated_Cluster : public testing::Test {
 protected:
  Simulated_Cluster() {
    WebSocket_Options::instance()->ssl(true);
    environment.set("AUX_PORT", std::to_string(agent_front.port()).c_str());
    create_namespace("agents");
    create_namespace("shop");
    create("", "pods", R"({"kind":"Pod","apiVersion":"v1","metadata":{"name":"aux-1","namespace":"agents",
        "labels":{"app":"aux"}},"spec":{"nodeName":"n1","containers":[{"name":"c","image":"i"}]},
        "status":{"phase":"Running","podIP":"127.0.0.1"}})");
    EXPECT_TRUE(K8S_Cluster::instance()->init()) << log.all();
    front.clear_requests();
  }
  ~Simulated_Cluster() override {
    EXPECT_EQ(agent.verify(), "") << log.all();
    WebSocket_Options::instance()->ssl(false);
    K8S_Cluster::close_instance();
  }

  void create_namespace(const std::string& name) {
    create("", "namespaces", R"({"kind":"Namespace","apiVersion":"v1","metadata":{"name":")" + name + R"("}})");
  }
  /// An object without finalizers, since there are no controllers to take them off.
  void create(const std::string& group, const std::string& resource, const std::string& text) {
    const auto stored = cluster.create(group, resource, json(text).get_obj());
    ASSERT_TRUE(stored) << text;
    std::string name, ns;
    pextract(*stored).chroot("/metadata")("/name", name)("/namespace", ns);
    cluster.update({group, resource, ns, name},
                   [](json_spirit::Object& object) { return object["metadata"].get_obj().erase("finalizers") != 0; });
  }

  std::vector<std::string> errors() const { return log.texts(LM_ERROR); }
  /// What the API server was asked: "GET /api/v1/pods".
  std::vector<std::string> requests() const {
    std::vector<std::string> result;
    for (const kube_sim::Request& request : front.requests()) result.push_back(request.method + ' ' + request.target);
    return result;
  }

  /// The examined expressions of the lines at LM_EMERGENCY.
  std::vector<std::string> emergencies() const {
    std::vector<std::string> result;
    for (const std::string& text : log.texts(LM_EMERGENCY)) {
      const std::size_t comma = text.find(", ");
      result.push_back(text.substr(comma + 2, text.find('\n') - comma - 2));
    }
    return result;
  }

  kube_sim::Certificates certificates;
  Exec_Cluster cluster;
  kube_sim::Front front{cluster, {.certificates = &certificates}};
  kube_sim::Service_Account account{front, kube_sim::Cluster_Options().token};
  kube_sim::Scripted_Api agent;
  kube_sim::Front agent_front{agent, {.certificates = &certificates}};
  Aux_Environment environment;
  Log_Capture log;
};

}  // namespace test_support
