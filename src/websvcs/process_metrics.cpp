#include "websvcs/process_metrics.h"

#include <dirent.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "kolt/metrics.h"
#include "kolt/mount_table.h"

namespace {

constexpr char private_directory[] = "/var/cache/velmora/tessarin/k8s";

/// Of /proc/self/stat, in the kernel's units.
struct Process_Stat {
  unsigned long user_ticks = 0;
  unsigned long system_ticks = 0;
  long threads = 0;
  unsigned long long start_ticks = 0;
  unsigned long virtual_bytes = 0;
  long resident_pages = 0;
};

bool read_stat(Process_Stat& stat) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/proc/self/stat", "re"), std::fclose);
  char line[1024];
  if (!file || !std::fgets(line, sizeof line, file.get())) return false;
  const std::string text(line);
  const size_t name_end = text.rfind(')');  // the name of the program may hold anything
  if (name_end == std::string::npos) return false;
  return std::sscanf(text.c_str() + name_end + 1,
                     " %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu %*d %*d %*d %*d %ld %*d %llu %lu %ld",
                     &stat.user_ticks, &stat.system_ticks, &stat.threads, &stat.start_ticks, &stat.virtual_bytes,
                     &stat.resident_pages) == 6;
}

double seconds_of(clockid_t clock) {
  timespec now = {};
  ::clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void show(const char* name, const char* help, double value) {
  kolt::Gauge(name, help).set(value);
}

void show_stat(const Process_Stat& stat) {
  const auto ticks_per_second = static_cast<double>(::sysconf(_SC_CLK_TCK));
  const double cpu = static_cast<double>(stat.user_ticks + stat.system_ticks) / ticks_per_second;
  static double counted_cpu = 0;
  kolt::Counter("process_cpu_seconds_total", "User and system time of the process.").add(cpu - counted_cpu);
  counted_cpu = std::max(cpu, counted_cpu);

  const double boot = seconds_of(CLOCK_REALTIME) - seconds_of(CLOCK_BOOTTIME);
  show("process_start_time_seconds", "Start of the process, since 1970.",
       boot + static_cast<double>(stat.start_ticks) / ticks_per_second);
  show("process_threads", "Threads of the process.", static_cast<double>(stat.threads));
  show("process_virtual_memory_bytes", "Address space of the process.", static_cast<double>(stat.virtual_bytes));
  show("process_resident_memory_bytes", "Memory of the process that is in RAM.",
       static_cast<double>(stat.resident_pages) * static_cast<double>(::sysconf(_SC_PAGESIZE)));
}

void show_descriptors() {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir("/proc/self/fd"), ::closedir);
  rlimit limit = {};
  if (!directory || ::getrlimit(RLIMIT_NOFILE, &limit) == -1) return;
  int open = -1;  // that of this directory does not count
  while (const dirent* entry = ::readdir(directory.get())) open += entry->d_name[0] != '.';
  show("process_open_fds", "Open file descriptors.", open);
  show("process_max_fds", "Most file descriptors that may be open.", static_cast<double>(limit.rlim_cur));
}

}  // namespace

void update_process_metrics() {
  Process_Stat stat;
  if (read_stat(stat)) show_stat(stat);
  show_descriptors();
  std::vector<std::string> binds;
  if (mounts_below(private_directory, binds))
    show("tessarin_binds", "Mounts that stand below the agent's private directory.", static_cast<double>(binds.size()));
}
