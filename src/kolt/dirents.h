#pragma once

#include <dirent.h>

#include <cstring>
#include <memory>
#include <string>

namespace kolt {

/// Reads the names of open directories in big steps. One buffer serves any number of directories, one after the other.
class Dirents {
 public:
  /// Calls visit(const char* name) for all entries of @a fd but "." and "..".
  /// @return whether the end was reached. If not, errno tells why.
  template <typename Visit>
  bool for_each(int fd, Visit visit) {
    for (;;) {
      const ssize_t size = getdents64(fd, buffer_.get(), buffer_size);
      if (size <= 0) return size == 0;
      for (ssize_t at = 0; at < size;) {
        const auto* entry = reinterpret_cast<const dirent64*>(buffer_.get() + at);
        at += entry->d_reclen;
        if (!is_self_or_parent(entry->d_name)) visit(entry->d_name);
      }
    }
  }

 private:
  static constexpr std::size_t buffer_size = 256 * 1024;

  static bool is_self_or_parent(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
  }

  std::unique_ptr<char[]> buffer_{new char[buffer_size]};
};

/// Names in one block of memory, handed out in the order in which they came.
class Name_List {
 public:
  void add(const char* name) { names_.append(name, std::strlen(name) + 1); }
  /// The next name, or null at the end. Valid until the next add().
  const char* next() {
    if (next_ == names_.size()) return nullptr;
    const char* name = names_.c_str() + next_;
    current_ = next_;
    next_ += std::strlen(name) + 1;
    return name;
  }
  /// The name that next() gave last.
  const char* current() const { return names_.c_str() + current_; }

 private:
  std::string names_;
  std::size_t current_ = 0;
  std::size_t next_ = 0;
};

}  // namespace kolt
