#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <set>
#include <string>

namespace test_support {

/// Adds a request to the file that the variable TESSARIN_REQUEST_LIST names, once per process: "GET /api/v1/pods".
/// Without the variable nothing happens. What rights the library needs is worked out from these lists
/// (deploy/test/rbac_test.py). Threads: any.
inline void note_request(const std::string& method, const std::string& target) {
  static const char* const file = std::getenv("TESSARIN_REQUEST_LIST");
  if (!file) return;
  static std::mutex lock;
  static std::set<std::string> noted;
  const std::string line = method + ' ' + target.substr(0, target.find('?')) + '\n';
  const std::lock_guard<std::mutex> guard(lock);
  if (!noted.insert(line).second) return;
  const int fd = ::open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0 || ::write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) std::abort();
  ::close(fd);
}

}  // namespace test_support
