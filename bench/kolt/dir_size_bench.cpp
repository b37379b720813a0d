// Measures a warm tree with dir_size() and with "du -sb" in turn, and prints the medians and their ratio.
//
// usage: dir_size_bench [ENTRIES [ROUNDS [PARENT-DIRECTORY]]]
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kolt/dir_size.h"
#include "kolt/rm_all.h"
#include "kolt/string_sprintf.h"

extern char** environ;

namespace {

constexpr int files_in_directory = 14;
constexpr int directories_in_directory = 8;

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

// Makes directories in the order of a breadth-first walk, each with its files, until there are enough entries.
void make_tree(const std::string& root, int entries) {
  std::vector<std::string> directories = {root};
  int made = 0;
  for (std::size_t next = 0; made < entries; ++next) {
    const std::string dir = directories[next];
    for (int i = 0; i < files_in_directory && made < entries; ++i, ++made) {
      const int fd = ::open(string_sprintf("%s/file-%03d.dat", dir.c_str(), i).c_str(), O_CREAT | O_WRONLY, 0644);
      if (fd < 0 || ::ftruncate(fd, i * 1000) != 0) fail("make a file");
      ::close(fd);
    }
    for (int i = 0; i < directories_in_directory && made < entries; ++i, ++made) {
      directories.push_back(string_sprintf("%s/directory-%d", dir.c_str(), i));
      if (::mkdir(directories.back().c_str(), 0755) != 0) fail("make a directory");
    }
  }
}

void run_du(const char* path) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  const char* argv[] = {"du", "-sb", path, nullptr};
  pid_t pid;
  if (posix_spawnp(&pid, "du", &actions, nullptr, const_cast<char**>(argv), environ) != 0) fail("du");
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || status != 0) fail("du");
  posix_spawn_file_actions_destroy(&actions);
}

template <typename F>
double seconds(F f) {
  const auto start = std::chrono::steady_clock::now();
  f();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const int entries = argc > 1 ? std::atoi(argv[1]) : 150000;
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 11;
  std::string root = std::string(argc > 3 ? argv[3] : "/tmp") + "/dir_size_bench-XXXXXX";
  if (mkdtemp(root.data()) == nullptr) fail("make the tree");
  make_tree(root, entries);

  ACE_OFF_T size = dir_size(root.c_str());  // warms the caches
  run_du(root.c_str());
  std::vector<double> ours, theirs;
  for (int i = 0; i < rounds; ++i) {
    ours.push_back(seconds([&] { size = dir_size(root.c_str()); }));
    theirs.push_back(seconds([&] { run_du(root.c_str()); }));
  }
  std::printf("%d entries, %lld bytes: dir_size %.1f ms, du -sb %.1f ms, dir_size takes %.2f of the time\n", entries,
              static_cast<long long>(size), median(ours) * 1e3, median(theirs) * 1e3, median(ours) / median(theirs));
  const double removal = seconds([&] { rm_all(root.c_str()); });
  std::printf("rm_all %.1f ms\n", removal * 1e3);
  return 0;
}
