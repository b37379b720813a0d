#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

/// Owns a file descriptor, or none (-1), and closes it at the end. errno survives the closing.
class Posix_Fd {
 public:
  explicit Posix_Fd(int fd = -1) : fd_(fd) {}
  Posix_Fd(Posix_Fd&& other) noexcept : fd_(other.release()) {}
  Posix_Fd& operator=(Posix_Fd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  ~Posix_Fd() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  /// Gives the descriptor away, to be closed by the caller.
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0 && fd_ != fd) {
      const int error = errno;
      ::close(fd_);
      errno = error;
    }
    fd_ = fd;
  }

 private:
  int fd_;
};
