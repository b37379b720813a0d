// How fast JSON is read, looked into and written, beside other libraries.
//
//   json_bench           Google Benchmark: a list of 10,000 pods and a small request
//   json_bench --fresh   the list once more, each parse in a process of its own: speed on a fresh heap, and peak memory
#include <benchmark/benchmark.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "contenders.h"
#include "pod_list.h"

namespace {

constexpr std::size_t pods = 10000;
constexpr int rounds = 7;

const std::string& pod_list() {
  static const std::string text = make_pod_list(pods);
  return text;
}
const std::string& request() {
  static const std::string text = make_backup_request();
  return text;
}

void parse(benchmark::State& state, const Contender& contender, const std::string& text) {
  for (auto _ : state) benchmark::DoNotOptimize(contender.parse(text));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void extract(benchmark::State& state, const Contender& contender) {
  const auto document = contender.parse(pod_list());
  for (auto _ : state) benchmark::DoNotOptimize(document->extract());
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * pods));
}

void dump(benchmark::State& state, const Contender& contender, const std::string& text) {
  const auto document = contender.parse(text);
  for (auto _ : state) benchmark::DoNotOptimize(document->dump());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void register_all() {
  for (const Contender& contender : contenders()) {
    const std::string name = contender.name;
    const bool same_model = name.starts_with("json_spirit_");  // differs from ours in the reading alone
    const auto add = [&](const std::string& what, auto&&... args) {
      benchmark::RegisterBenchmark((what + "/" + name).c_str(), args...)->Unit(benchmark::kMicrosecond);
    };
    add("parse_and_free_pods", parse, contender, pod_list());
    add("parse_and_free_request", parse, contender, request());
    if (same_model) continue;
    add("extract_pods", extract, contender);
    add("dump_pods", dump, contender, pod_list());
    add("dump_request", dump, contender, request());
  }
}

struct Figures {
  double parse_seconds;
  double with_free_seconds;
  long peak_kib;
};

/// Of this process alone: others may be using the processors.
double cpu_seconds() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

long peak_kib() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("VmHWM:")) return std::strtol(line.c_str() + 6, nullptr, 10);
  return -1;
}

Figures measure(const Contender& contender) {
  Figures figures;
  const double start = cpu_seconds();
  {
    const auto document = contender.parse(pod_list());
    figures.parse_seconds = cpu_seconds() - start;
    figures.peak_kib = peak_kib();
  }
  figures.with_free_seconds = cpu_seconds() - start;
  return figures;
}

/// The figures of one parse in a child process.
Figures measure_apart(const Contender& contender) {
  static Figures* const shared =
      static_cast<Figures*>(mmap(nullptr, sizeof(Figures), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  const pid_t child = fork();
  if (child == 0) {
    *shared = measure(contender);
    _exit(0);
  }
  int status = 0;
  if (child == -1 || waitpid(child, &status, 0) != child || status != 0) abort();
  return *shared;
}

/// The contenders take turns, so that a busy moment of the machine meets all of them; the best of each counts.
int run_fresh() {
  const double megabytes = static_cast<double>(pod_list().size()) / 1e6;
  std::vector<Figures> best(contenders().size(), {1e9, 1e9, 0});
  for (int round = 0; round < rounds; ++round)
    for (std::size_t i = 0; i < best.size(); ++i) {
      const Figures figures = measure_apart(contenders()[i]);
      best[i].parse_seconds = std::min(best[i].parse_seconds, figures.parse_seconds);
      best[i].with_free_seconds = std::min(best[i].with_free_seconds, figures.with_free_seconds);
      best[i].peak_kib = std::max(best[i].peak_kib, figures.peak_kib);
    }
  std::printf("%zu pods, %.1f MB of text (which counts in the peak); best of %d\n", pods, megabytes, rounds);
  std::printf("%-30s %12s %20s %10s\n", "", "parse MB/s", "and free MB/s", "peak MiB");
  for (std::size_t i = 0; i < best.size(); ++i)
    std::printf("%-30s %12.0f %20.0f %10.0f\n", contenders()[i].name, megabytes / best[i].parse_seconds,
                megabytes / best[i].with_free_seconds, static_cast<double>(best[i].peak_kib) / 1024);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--fresh") == 0) return run_fresh();
  register_all();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
