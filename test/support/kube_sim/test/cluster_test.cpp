#include "support/kube_sim/cluster.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/kube_sim/test/cluster_call.h"

namespace kube_sim {
namespace {

using json_spirit::Object;

Object named(const std::string& name, const std::string& ns = {}) {
  Object object;
  object["metadata"].to_object()["name"] = name;
  if (!ns.empty()) object["metadata"].to_object()["namespace"] = ns;
  return object;
}

const Object_Id claim{"", "persistentvolumeclaims", "default", "data"};

TEST(Cluster, StartsWithTheNamespacesOfEachCluster) {
  Cluster cluster;
  EXPECT_EQ(cluster.list("", "namespaces").size(), 4u);
  EXPECT_TRUE(cluster.get({"", "serviceaccounts", "default", "default"}));
  EXPECT_TRUE(cluster.get({"", "configmaps", "kube-system", "kube-root-ca.crt"}));
}

TEST(Cluster, CreatesFillsInAndRefusesASecondOfTheName) {
  Cluster cluster;
  const auto made = cluster.create("", "pods", named("p", "default"));
  ASSERT_TRUE(made);
  std::string phase, uid, kind;
  json_spirit::pextract (*made)("/status/phase", phase)("/metadata/uid", uid)("/kind", kind);
  EXPECT_EQ(phase, "Pending");
  EXPECT_EQ(uid.size(), 36u);
  EXPECT_EQ(kind, "Pod");
  EXPECT_FALSE(cluster.create("", "pods", named("p", "default")));
  EXPECT_FALSE(cluster.create("", "nosuchthings", named("p", "default")));
}

TEST(Cluster, ListsByLabel) {
  Cluster cluster;
  Object pod = named("p", "default");
  pod["metadata"].get_obj()["labels"].to_object()["a"] = "1";
  cluster.create("", "pods", pod);
  cluster.create("", "pods", named("q", "default"));
  EXPECT_EQ(cluster.list("", "pods").size(), 2u);
  EXPECT_EQ(cluster.list("", "pods", "default", "a=1").size(), 1u);
  EXPECT_EQ(cluster.list("", "pods", "kube-system").size(), 0u);
}

TEST(Cluster, AnEditThatGivesUpStoresNothing) {
  Cluster cluster;
  cluster.create("", "nodes", named("n"));
  const auto before = cluster.get({"", "nodes", "", "n"});
  EXPECT_FALSE(cluster.update({"", "nodes", "", "n"}, [](Object& node) {
    node["status"].to_object()["phase"] = "x";
    return false;
  }));
  EXPECT_EQ(cluster.get({"", "nodes", "", "n"}), before);
  EXPECT_FALSE(cluster.update({"", "nodes", "", "none"}, [](Object&) { return true; }));
}

TEST(Cluster, WhatHasFinalizersGoesWithTheLastOfThem) {
  Cluster cluster;
  cluster.create("", claim.resource, named("data", "default"));
  EXPECT_TRUE(cluster.remove(claim));
  ASSERT_TRUE(cluster.get(claim));
  std::string time;
  json_spirit::pextract (*cluster.get(claim))("/metadata/deletionTimestamp", time);
  EXPECT_FALSE(time.empty());
  cluster.update(claim, [](Object& object) {
    object["metadata"].get_obj().erase("finalizers");
    return true;
  });
  EXPECT_FALSE(cluster.get(claim));
  EXPECT_FALSE(cluster.remove(claim));
}

TEST(Cluster, APodOnANodeEndsWhenItsNodeSaysSo) {
  Cluster cluster;
  Object pod = named("p", "default");
  pod["spec"].to_object()["nodeName"] = "n";
  cluster.create("", "pods", pod);
  const Object_Id id{"", "pods", "default", "p"};
  EXPECT_EQ(call(cluster, "DELETE", "/api/v1/namespaces/default/pods/p").status, 200);
  EXPECT_TRUE(cluster.get(id));
  EXPECT_TRUE(cluster.remove(id));
  EXPECT_FALSE(cluster.get(id));
}

TEST(Cluster, ADeletedNamespaceGoesWithItsFinalizer) {
  Cluster cluster;
  cluster.create("", "namespaces", named("shop"));
  const Object_Id shop{"", "namespaces", "", "shop"};
  cluster.remove(shop);
  ASSERT_TRUE(cluster.get(shop));
  std::string phase;
  json_spirit::pextract (*cluster.get(shop))("/status/phase", phase);
  EXPECT_EQ(phase, "Terminating");
  cluster.update(shop, [](Object& object) {
    object["spec"].get_obj().erase("finalizers");
    return true;
  });
  EXPECT_FALSE(cluster.get(shop));
}

TEST(Cluster, TellsSubscribersOfEachChangeInOrder) {
  Cluster cluster;
  std::vector<std::pair<Change_Type, std::string>> seen;
  const int subscription = cluster.subscribe(
      [&](const Change& change) { seen.emplace_back(change.type, change.id.resource + "/" + change.id.name); });
  const Object_Id node{"", "nodes", "", "n"};
  cluster.create("", "nodes", named("n"));
  cluster.update(node, [](Object& object) {
    object["status"].to_object()["phase"] = "x";
    return true;
  });
  cluster.update(node, [](Object&) { return true; });  // changes nothing
  cluster.remove(node);
  cluster.unsubscribe(subscription);
  cluster.create("", "nodes", named("m"));
  const std::vector<std::pair<Change_Type, std::string>> expected{
      {Change_Type::added, "nodes/n"}, {Change_Type::modified, "nodes/n"}, {Change_Type::deleted, "nodes/n"}};
  EXPECT_EQ(seen, expected);
}

TEST(Cluster, AdmitsWhoeverBearsTheToken) {
  Cluster cluster;
  Request request;
  request.method = "GET";
  set_target(request, "/api/v1/namespaces/default/pods/p/exec?command=ls");
  Answer refusal;
  EXPECT_FALSE(cluster.admits(request, refusal));
  EXPECT_EQ(refusal.status, 403);
  request.headers["authorization"] = "Bearer wrong";
  EXPECT_FALSE(cluster.admits(request, refusal));
  EXPECT_EQ(refusal.status, 401);
  request.headers["authorization"] = "Bearer " + Cluster_Options().token;
  EXPECT_TRUE(cluster.admits(request, refusal));
}

TEST(Cluster, CountsAllChangesOfManyThreads) {
  Cluster cluster;
  cluster.create("", "nodes", named("n"));
  const auto count = [&] {
    for (int i = 0; i < 200; ++i) {
      cluster.update({"", "nodes", "", "n"}, [](Object& node) {
        int number = 0;
        Object& status = node["status"].to_object();
        json_spirit::object_get(status, "count", number);
        status["count"] = number + 1;
        return true;
      });
      call(cluster, "GET", "/api/v1/nodes");
    }
  };
  std::thread other(count);
  count();
  other.join();
  int number = 0;
  json_spirit::pextract (*cluster.get({"", "nodes", "", "n"}))("/status/count", number);
  EXPECT_EQ(number, 400);
}

/// Collects the lines of a watch until there are as many as wanted.
class Line_Sink : public Watch_Sink {
 public:
  explicit Line_Sink(int wanted) : wanted_(wanted) {}
  bool start() override { return true; }
  bool send(std::string_view lines) override {
    text += lines;
    for (const char c : lines) seen_ += c == '\n';
    return true;
  }
  bool open() override {
    asked = true;
    return seen_ < wanted_;
  }

  std::string text;
  std::atomic<bool> asked{false};

 private:
  const int wanted_;
  int seen_ = 0;
};

Request watch_request(const std::string& query) {
  Request request;
  request.method = "GET";
  set_target(request, std::string(config_maps) + "?watch=true" + query);
  request.headers["authorization"] = "Bearer " + Cluster_Options().token;
  return request;
}

TEST(Watch, TellsWhatIsThereAndWhatHappens) {
  Cluster cluster;
  Line_Sink sink(4);
  std::thread watcher([&] { EXPECT_TRUE(cluster.watch(watch_request(""), sink)); });
  while (!sink.asked) std::this_thread::yield();
  call(cluster, "POST", config_maps, config_map_text("a"));
  call(cluster, "PATCH", std::string(config_maps) + "/a", R"({"data":{"k":"v"}})", "application/merge-patch+json");
  call(cluster, "DELETE", std::string(config_maps) + "/a");
  watcher.join();
  EXPECT_NE(sink.text.find(R"({"type":"ADDED","object":{"kind":"ConfigMap")"), std::string::npos);
  EXPECT_NE(sink.text.find(R"({"type":"MODIFIED")"), std::string::npos);
  EXPECT_NE(sink.text.find(R"({"type":"DELETED")"), std::string::npos);
}

TEST(Watch, AnObjectThatNoLongerMatchesIsGone) {
  Cluster cluster;
  Line_Sink sink(2);
  std::thread watcher([&] { EXPECT_TRUE(cluster.watch(watch_request("&labelSelector=x=1"), sink)); });
  while (!sink.asked) std::this_thread::yield();
  call(cluster, "POST", config_maps, config_map_text("a", R"({"x":"1"})"));
  call(cluster, "PATCH", std::string(config_maps) + "/a", R"({"metadata":{"labels":{"x":"2"}}})",
       "application/merge-patch+json");
  watcher.join();
  EXPECT_NE(sink.text.find(R"({"type":"DELETED")"), std::string::npos) << sink.text;
}

TEST(Watch, EndsAfterTheTimeAskedFor) {
  Cluster cluster;
  Line_Sink sink(1'000'000);
  EXPECT_TRUE(cluster.watch(watch_request("&timeoutSeconds=1"), sink));
}

TEST(Watch, IsRefusedAsAnAnswer) {
  Cluster cluster;
  Line_Sink sink(1);
  EXPECT_FALSE(cluster.watch(watch_request("&fieldSelector=nosuchfield=1"), sink));
  EXPECT_EQ(cluster.answer(watch_request("&fieldSelector=nosuchfield=1")).status, 400);
}

}  // namespace
}  // namespace kube_sim
