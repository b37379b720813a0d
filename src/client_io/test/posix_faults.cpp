#include "client_io/test/posix_faults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

namespace {

std::atomic<int> planned{posix_faults::CALLS};
std::atomic<int> left{0};
std::atomic<int> made{0};
std::atomic<int> planned_error{0};
std::atomic<bool> struck{false};
std::atomic<const char*> bad_name{nullptr};
std::atomic<int> bad_name_error{0};

bool strikes(posix_faults::Call call) {
  if (planned != call) return false;
  ++made;
  if (left-- != 0) return false;
  struck = true;
  errno = planned_error;
  return true;
}

}  // namespace

namespace posix_faults {

void fail(Call call, int nth, int error) {
  made = 0;
  struck = false;
  left = nth;
  planned_error = error;
  planned = call;
}

bool stop() {
  planned = CALLS;
  return struck;
}

void fail_status_of(const char* name, int error) {
  bad_name_error = error;
  bad_name = name;
}

void count(Call call) {
  fail(call, -1, 0);
}
int calls() {
  return made;
}

int fail_each(Call call, int error, const std::function<bool()>& attempt, const std::function<void()>& undo,
              const std::function<void()>& check) {
  int failures = 0;
  for (int nth = 0; nth < 5000 && !::testing::Test::HasFatalFailure(); ++nth) {
    SCOPED_TRACE(nth);
    fail(call, nth, error);
    const bool ok = attempt();
    const int found = errno;
    if (!stop()) {
      EXPECT_TRUE(ok);
      return failures;
    }
    errno = found;
    if (ok) {
      undo();
    } else {
      ++failures;
      check();
    }
  }
  ADD_FAILURE() << "it never ends";
  return failures;
}

}  // namespace posix_faults

extern "C" {

ssize_t write(int fd, const void* data, size_t n) {
  return strikes(posix_faults::WRITE) ? -1 : syscall(SYS_write, fd, data, n);
}

int fsync(int fd) {
  return strikes(posix_faults::FSYNC) ? -1 : static_cast<int>(syscall(SYS_fsync, fd));
}

int syncfs(int fd) noexcept {
  return strikes(posix_faults::SYNCFS) ? -1 : static_cast<int>(syscall(SYS_syncfs, fd));
}

// As the kernel does it: the descriptor is closed also when the call fails.
int close(int fd) {
  const bool fails = strikes(posix_faults::CLOSE);
  const int error = errno;
  const int closed = static_cast<int>(syscall(SYS_close, fd));
  if (fails) errno = error;
  return fails ? -1 : closed;
}

int renameat2(int old_dir, const char* old_name, int new_dir, const char* new_name, unsigned flags) noexcept {
  if (strikes(posix_faults::RENAME)) return -1;
  const int renamed = static_cast<int>(syscall(SYS_renameat2, old_dir, old_name, new_dir, new_name, flags));
  return strikes(posix_faults::RENAME_DONE) ? -1 : renamed;
}

int sync_file_range(int fd, off_t from, off_t count, unsigned flags) {
  if ((flags & SYNC_FILE_RANGE_WAIT_AFTER) != 0 && strikes(posix_faults::SETTLE)) return -1;
  return static_cast<int>(syscall(SYS_sync_file_range, fd, from, count, flags));
}

dirent* readdir(DIR* dir) {
  typedef dirent* Call(DIR*);
  static Call* const next = reinterpret_cast<Call*>(dlsym(RTLD_NEXT, "readdir"));
  return strikes(posix_faults::READDIR) ? nullptr : next(dir);
}

int fstatat(int dir, const char* name, struct stat* st, int flags) noexcept {
  const char* const bad = bad_name;
  if (bad == nullptr || std::strcmp(name, bad) != 0)
    return static_cast<int>(syscall(SYS_newfstatat, dir, name, st, flags));
  errno = bad_name_error;
  return -1;
}

ssize_t pread(int fd, void* to, size_t n, off_t offset) {
  return strikes(posix_faults::PREAD) ? -1 : syscall(SYS_pread64, fd, to, n, offset);
}
}
