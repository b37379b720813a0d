#include <benchmark/benchmark.h>

#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "support/kube_sim/cluster.h"

// How fast the simulated cluster lists 10,000 pods: from kept texts, against the same list rendered anew.
namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;

constexpr int pods = 10'000;

Object make_pod(int number) {
  Array containers, conditions;
  for (const char* name : {"main", "side"})
    containers << Object_Maker()("name", name)("image", "registry.invalid/shop/web:1.36");
  for (const char* type : {"Ready", "Initialized", "ContainersReady", "PodScheduled"})
    conditions << Object_Maker()("type", type)("status", "True");
  return Object_Maker()("metadata", Object_Maker()("name", "web-" + std::to_string(number))("namespace", "default")(
                                        "labels", Object_Maker()("app", "web")))(
             "spec", Object_Maker()("containers", containers)("nodeName", "worker-1"))(
             "status", Object_Maker()("phase", "Running")("conditions", conditions))
      .get_obj();
}

kube_sim::Cluster& full_cluster() {
  static kube_sim::Cluster cluster;
  static const bool filled = [] {
    for (int i = 0; i < pods; ++i) cluster.create("", "pods", make_pod(i));
    return true;
  }();
  benchmark::DoNotOptimize(filled);
  return cluster;
}

void list(benchmark::State& state, const char* target) {
  kube_sim::Cluster& cluster = full_cluster();
  kube_sim::Request request;
  request.method = "GET";
  set_target(request, target);
  request.headers["authorization"] = "Bearer " + kube_sim::Cluster_Options().token;
  std::size_t bytes = 0;
  for (auto _ : state) bytes += cluster.answer(request).body.size();
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

void list_all(benchmark::State& state) {
  list(state, "/api/v1/pods");
}
BENCHMARK(list_all)->Unit(benchmark::kMillisecond);

void list_by_label(benchmark::State& state) {
  list(state, "/api/v1/pods?labelSelector=app=web");
}
BENCHMARK(list_by_label)->Unit(benchmark::kMillisecond);

void render_all(benchmark::State& state) {
  const auto objects = full_cluster().list("", "pods");
  std::size_t bytes = 0;
  for (auto _ : state)
    for (const auto& object : objects) bytes += json_spirit::JSON_Dump(*object, false).size();
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK(render_all)->Unit(benchmark::kMillisecond);

void create_a_pod(benchmark::State& state) {
  kube_sim::Cluster cluster;
  int number = 0;
  for (auto _ : state) cluster.create("", "pods", make_pod(++number));
}
BENCHMARK(create_a_pod)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
