#include "kolt/first_match.h"

#include <dirent.h>
#include <glob.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "kolt/scoped_deleter.h"

namespace {

/// What a search has left. glob() hands its callbacks no context, so that the thread keeps it for them.
class Search {
 public:
  explicit Search(const Match_Limits& limits)
      : bytes_(limits.bytes), end_(std::chrono::steady_clock::now() + limits.time), outer_(current_) {
    current_ = this;
  }
  ~Search() { current_ = outer_; }
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;

  static Search& current() { return *current_; }

  /// @return whether a path of this length may be looked at; errno tells why not.
  bool take(size_t length) {
    const size_t cost = length + 64;
    if (!ended_ && cost <= bytes_ && std::chrono::steady_clock::now() < end_) {
      bytes_ -= cost;
      return true;
    }
    ended_ = true;
    errno = E2BIG;
    return false;
  }
  bool ended() const { return ended_; }

 private:
  size_t bytes_;
  const std::chrono::steady_clock::time_point end_;
  Search* const outer_;
  bool ended_ = false;

  static thread_local Search* current_;
};

thread_local Search* Search::current_ = nullptr;

struct Directory {
  DIR* stream;
  size_t path_length;
};

void* open_directory(const char* path) {
  const size_t length = std::strlen(path);
  if (!Search::current().take(length)) return nullptr;
  DIR* const stream = ::opendir(path);
  if (!stream) return nullptr;
  auto* const directory = new (std::nothrow) Directory{stream, length};
  if (!directory) {
    ::closedir(stream);
    errno = ENOMEM;
  }
  return directory;
}

dirent* read_directory(void* handle) {
  const auto* const directory = static_cast<Directory*>(handle);
  dirent* const entry = ::readdir(directory->stream);
  return entry && Search::current().take(directory->path_length + std::strlen(entry->d_name)) ? entry : nullptr;
}

void close_directory(void* handle) {
  auto* const directory = static_cast<Directory*>(handle);
  ::closedir(directory->stream);
  delete directory;
}

int examine(const char* path, struct stat* status) {
  return Search::current().take(std::strlen(path)) ? ::stat(path, status) : -1;
}

int examine_link(const char* path, struct stat* status) {
  return Search::current().take(std::strlen(path)) ? ::lstat(path, status) : -1;
}

// A directory that cannot be read is passed over, unless nothing more may be read.
int failed_to_open(const char*, int) {
  return Search::current().ended();
}

void tell(const std::string& pattern, const char* why) {
  ACE_ERROR(
      (LM_WARNING, ACE_TEXT("The search for '%C' is given up: %C.\n"), printable(pattern.substr(0, 200)).c_str(), why));
}

}  // namespace

std::optional<std::string> first_match(const std::string& pattern, const Match_Limits& limits) {
  if (pattern.size() >= PATH_MAX) {
    tell(pattern, "it is longer than a path may be");
    return std::nullopt;
  }
  Search search(limits);
  glob_t globber = {};
  globber.gl_opendir = open_directory;
  globber.gl_readdir = read_directory;
  globber.gl_closedir = close_directory;
  globber.gl_stat = examine;
  globber.gl_lstat = examine_link;
  const auto clean_up = make_deleter([&globber] { globfree(&globber); });
  const int result = glob(pattern.c_str(), GLOB_ALTDIRFUNC, failed_to_open, &globber);
  if (search.ended()) {
    tell(pattern, "it leads to too many paths");
    return std::nullopt;
  }
  if (result != 0 || globber.gl_pathc == 0) return std::nullopt;
  return globber.gl_pathv[0];
}
