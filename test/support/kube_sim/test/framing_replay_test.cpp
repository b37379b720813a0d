#include <gtest/gtest.h>

#include <set>

#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "support/kube_sim/cluster.h"
#include "support/kube_sim/front.h"
#include "support/kube_sim/test/body_compare.h"
#include "support/kube_sim/test/controller_stand_in.h"
#include "support/kube_sim/test/left_out.h"
#include "support/kube_sim/test/recorded_exchange.h"
#include "support/kube_sim/test/tls_peer.h"

// Replays the recordings that tell how HTTP is spoken against a cluster behind a front, through TLS.
namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;
using kube_sim_test::Reply;
using kube_sim_test::State;
using kube_sim_test::Tls_Peer;

namespace {

bool says(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

/// The bytes of the recorded request, with our token in the place of the one that was taken out.
std::string request_text(const Recorded_Exchange& exchange) {
  Request request = exchange.request;
  auto& headers = request.headers;
  const auto authorization = headers.find("authorization");
  if (authorization == headers.end()) {
    EXPECT_TRUE(authorize(request, exchange.note)) << exchange.note;
  } else {
    const std::string taken_out = "REDACTED";
    std::string& value = authorization->second;
    value.replace(value.find(taken_out), taken_out.size(), Cluster_Options().token);
  }
  if (!says(exchange.note, "without a Host header")) headers["host"] = "localhost";
  if (!request.body.empty() && !headers.count("transfer-encoding"))
    headers.emplace("content-length", std::to_string(request.body.size()));
  std::string text = request.method + " " + request.target + " ";
  text += (exchange.version.empty() ? "HTTP/1.1" : exchange.version) + "\r\n";
  for (const auto& [name, value] : headers) text += name + ": " + value + "\r\n";
  return text + "\r\n" + request.body;
}

Reply final_reply(Tls_Peer& peer) {
  Reply reply = peer.reply();
  while (reply.status == 100) reply = peer.reply();
  return reply;
}

/// Those that are present, those that are absent, and their values but for such as differ in each run.
void expect_same_headers(const Recorded_Exchange& exchange, const Reply& reply, const std::set<std::string>& without) {
  for (const auto& [name, recorded] : exchange.headers | json_spirit::get_str) {
    if (without.count(name)) continue;
    const auto ours = reply.headers.find(name);
    if (ours == reply.headers.end()) {
      ADD_FAILURE() << "header " << name << " is absent";
    } else if (name != "date" && name != "content-length") {
      EXPECT_EQ(ours->second, recorded) << "header " << name;
    }
  }
  for (const auto& [name, ours] : reply.headers) {
    const bool as_recorded = without.count(name) || exchange.headers.count(name);
    EXPECT_TRUE(as_recorded) << "header " << name << ": " << ours << " was not recorded";
  }
}

void expect_same_body(const Recorded_Exchange& exchange, const Reply& reply, Renewed_Values& renewed) {
  if (!exchange.body_text.empty()) {
    EXPECT_EQ(reply.body, exchange.body_text);
    return;
  }
  if (says(exchange.note, "the response body is left out")) {
    EXPECT_EQ(reply.body.starts_with("\x1f\x8b"), exchange.headers.count("content-encoding") != 0);
    return;
  }
  Value ours;
  EXPECT_TRUE(json_spirit::loads_json(std::string_view(reply.body), ours)) << reply.body;
  for (const auto& difference : compare_bodies(exchange.body, ours, {}, renewed)) ADD_FAILURE() << difference;
}

void expect_same_end(const std::string& recorded, Tls_Peer& peer) {
  using std::chrono::milliseconds;
  if (says(recorded, "still open")) {
    EXPECT_EQ(peer.state(milliseconds(50)), State::OPEN);
  } else if (says(recorded, "the server closed")) {
    EXPECT_EQ(peer.state(milliseconds(5000)), State::CLOSED);
  } else {
    EXPECT_EQ(recorded, "") << "not known here";
  }
}

/// What made the large lists large: copies of the config map in the recording of the first of them.
void add_config_maps(Cluster& cluster, const std::vector<Recorded_Exchange>& exchanges) {
  constexpr int many = 40;
  const Array* items = nullptr;
  for (const auto& exchange : exchanges)
    if (exchange.name == "a list, all response headers") json_spirit::pextract(exchange.body)("/items", items);
  ASSERT_TRUE(items && items->size() == 1);
  Object object;
  object["data"] = *json_spirit::object_get_value(items->front().get_obj(), "data");
  for (int i = 0; i < many; ++i) {
    const std::string number = std::to_string(i);
    Object& metadata = object["metadata"].to_object();
    metadata["namespace"] = "http-demo";
    metadata["name"] = "c-" + std::string(3 - number.size(), '0') + number;
    ASSERT_TRUE(cluster.create("", "configmaps", object));
  }
}

class Framing_Replay : public testing::TestWithParam<std::string> {};

TEST_P(Framing_Replay, AnswersAsTheRealServerDid) {
  const std::string group = GetParam();
  const auto exchanges = recorded_exchanges(group);
  ASSERT_FALSE(exchanges.empty());
  Cluster_Options options;
  options.powerless[nobody_token] = "lab-nobody";
  Cluster cluster(options);
  Controller_Stand_In controllers(cluster, group, exchanges);
  if (group == "http-framing") {
    ASSERT_NO_FATAL_FAILURE(add_config_maps(cluster, exchanges));
  }
  Front front(cluster);
  Renewed_Values renewed;
  for (const auto& exchange : exchanges) {
    SCOPED_TRACE(group + ": " + exchange.name);
    const Left_Out exception = left_out(group, exchange.name);
    if (exception.skip) continue;
    controllers.work_before(exchange, renewed);
    Tls_Peer peer(front.port(), front.ca());
    ASSERT_TRUE(peer.connected());
    peer.send(request_text(exchange));
    const Reply reply = final_reply(peer);
    EXPECT_TRUE(reply.whole);
    EXPECT_EQ(reply.status, exchange.status) << reply.head << reply.body;
    expect_same_headers(exchange, reply, exception.headers);
    expect_same_body(exchange, reply, renewed);
    expect_same_end(exchange.end, peer);
  }
  EXPECT_EQ(controllers.unused(), std::vector<std::string>());
}

INSTANTIATE_TEST_SUITE_P(Groups, Framing_Replay, testing::Values("http-framing", "http-requests"),
                         [](const auto& info) { return info.param == "http-framing" ? "framing" : "requests"; });

}  // namespace
}  // namespace kube_sim
