#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "support/kube_sim/cluster.h"
#include "support/kube_sim/test/body_compare.h"
#include "support/kube_sim/test/controller_stand_in.h"
#include "support/kube_sim/test/left_out.h"
#include "support/kube_sim/test/recorded_exchange.h"

// Replays what was recorded with a real API server against the simulated cluster, in order, and compares the answers.
namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

/// Puts our uids, versions and continue texts into a request that was made from recorded ones.
Request renewed_request(Request request, const Renewed_Values& renewed) {
  Value body;
  if (json_spirit::loads_json(std::string_view(request.body), body)) {
    const Value before = body;
    renew(body, renewed);
    if (!(before == body)) request.body = json_spirit::JSON_Dump(body, false).str();
  }
  for (auto& [name, value] : request.query) {
    const auto found = renewed.find(value);
    if ((name == "continue" || name == "resourceVersion") && found != renewed.end()) value = found->second;
  }
  return request;
}

std::string header_of(const Answer& answer, const std::string& name) {
  if (name == "content-type") return answer.content_type;
  for (const auto& [key, value] : answer.headers) {
    std::string lower = key;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    if (lower == name) return value;
  }
  return {};
}

void expect_same_headers(const Recorded_Exchange& exchange, const Answer& answer) {
  for (const char* name : {"content-type", "warning", "retry-after"}) {
    std::string recorded;
    json_spirit::object_get(exchange.headers, name, recorded);
    const bool no_body = answer.body.empty() || exchange.request.method == "HEAD";
    if (no_body && recorded.empty()) continue;
    EXPECT_EQ(header_of(answer, name), recorded) << "header " << name;
  }
}

void expect_same_body(const Recorded_Exchange& exchange, const Answer& answer, const std::set<std::string>& without,
                      Renewed_Values& renewed) {
  if (exchange.request.method == "HEAD") return;  // the front sends none
  if (!exchange.body_text.empty()) {
    EXPECT_EQ(answer.body, exchange.body_text);
    return;
  }
  Value ours;
  if (!answer.body.empty()) {
    EXPECT_TRUE(json_spirit::loads_json(std::string_view(answer.body), ours)) << answer.body;
  }
  for (const auto& difference : compare_bodies(exchange.body, ours, without, renewed)) ADD_FAILURE() << difference;
}

/// Takes what a watch has to tell of the past, and then goes.
class Past_Sink : public Watch_Sink {
 public:
  bool start() override { return true; }
  bool send(std::string_view lines) override {
    text += lines;
    return true;
  }
  bool open() override { return text.empty(); }

  std::string text;
};

void expect_same_lines(const Recorded_Exchange& exchange, const std::string& text, Renewed_Values& renewed) {
  Array ours;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    EXPECT_TRUE(json_spirit::loads_json(std::string_view(line), ours.emplace_back())) << line;
  for (const auto& difference : compare_bodies(exchange.lines, ours, {}, renewed)) ADD_FAILURE() << difference;
}

class Replay : public testing::TestWithParam<std::string> {};

TEST_P(Replay, AnswersAsTheRealServerDid) {
  const std::string group = GetParam();
  const auto exchanges = recorded_exchanges(group);
  ASSERT_FALSE(exchanges.empty());
  Cluster_Options options;
  options.powerless[nobody_token] = "lab-nobody";
  options.snapshots = group != "snapshot-api-absent" && group != "version-and-discovery";
  if (group == "watch") options.history = 3;
  Cluster cluster(options);
  Renewed_Values renewed;
  Controller_Stand_In controllers(cluster, group, exchanges);
  for (const auto& exchange : exchanges) {
    SCOPED_TRACE(group + ": " + exchange.name);
    const Left_Out exception = left_out(group, exchange.name);
    if (exception.skip) continue;
    controllers.work_before(exchange, renewed);
    Request request = renewed_request(exchange.request, renewed);
    ASSERT_TRUE(authorize(request, exchange.note)) << exchange.note;
    if (!exchange.lines.empty()) {
      Past_Sink sink;
      EXPECT_TRUE(cluster.watch(request, sink));
      expect_same_lines(exchange, sink.text, renewed);
      continue;
    }
    const Answer answer = cluster.answer(request);
    EXPECT_EQ(answer.status, exchange.status) << answer.body;
    expect_same_headers(exchange, answer);
    expect_same_body(exchange, answer, exception.without, renewed);
  }
  EXPECT_EQ(controllers.unused(), std::vector<std::string>());
}

INSTANTIATE_TEST_SUITE_P(Groups, Replay, testing::ValuesIn(recorded_groups()), [](const auto& info) {
  std::string name = info.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

TEST(Left_Out_Exchanges, AllStandInTheRecordingsAndHaveAReason) {
  const Value list = recorded_document("left-out.json");
  ASSERT_EQ(list.type(), json_spirit::array_type);
  for (const Object& entry : list.get_array() | json_spirit::get_obj) {
    std::string group, reason;
    const Array *names = nullptr, *headers = nullptr;
    json_spirit::extract(entry)("group", group)("reason", reason)("names", names)("headers", headers);
    EXPECT_FALSE(reason.empty());
    const auto exchanges = recorded_exchanges(group);
    EXPECT_FALSE(exchanges.empty()) << group;
    EXPECT_TRUE(names || headers);
    if (!names) continue;
    EXPECT_FALSE(names->empty());
    for (const std::string& name : *names | json_spirit::get_str)
      EXPECT_TRUE(std::any_of(exchanges.begin(), exchanges.end(),
                              [&](const Recorded_Exchange& exchange) { return exchange.name == name; }))
          << group << ": " << name;
  }
}

}  // namespace
}  // namespace kube_sim
