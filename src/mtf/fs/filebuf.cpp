#include "mtf/fs/filebuf.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace MTF_FS {

namespace {

/// From here on copying through a buffer costs more than a call to the system.
constexpr size_t direct_size = 4096;

/// Opens without following a final link and without waiting for the other end of a FIFO.
int open_without_waiting(const char* path, int flags, int mode) {
  int fd;
  do {
    fd = ::open(path, flags | O_NOFOLLOW | O_NONBLOCK, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

/// The same, and reading leaves the access time alone where the system allows that: to the owner and to root.
int open_for_reading(const char* path, int& flags, int mode) {
  const int fd = open_without_waiting(path, flags | O_NOATIME, mode);
  if (fd < 0 && errno == EPERM) return open_without_waiting(path, flags, mode);
  flags |= O_NOATIME;
  return fd;
}

int close_fd(int& fd) {
  const int closing = fd;
  fd = -1;
  return closing < 0 ? 0 : ::close(closing);
}

/// Closes on a failed path: errno stays what it was.
int close_failed(int& fd, int error) {
  close_fd(fd);
  errno = error;
  return -1;
}

}  // namespace

ifilebuf::ifilebuf(size_t buffer_size) : buffer_size_(std::max<size_t>(buffer_size, 1)) {}

ifilebuf::~ifilebuf() {
  close();
}

int ifilebuf::open(const char* path, int flags, int mode) {
  close();
  fd_ = open_for_reading(path, flags, mode);
  if (fd_ < 0) return -1;
  struct stat st;
  if (::fstat(fd_, &st) != 0) return close_failed(fd_, errno);
  if (!S_ISREG(st.st_mode)) return close_failed(fd_, S_ISDIR(st.st_mode) ? EISDIR : EINVAL);
  if (::fcntl(fd_, F_SETFL, flags) != 0) return close_failed(fd_, errno);
  return 0;
}

int ifilebuf::close() {
  setg(nullptr, nullptr, nullptr);
  return close_fd(fd_);
}

bool ifilebuf::next_data(uint64_t from, uint64_t& begin, uint64_t& end) {
  struct stat st;
  if (::fstat(fd_, &st) != 0) return false;
  setg(nullptr, nullptr, nullptr);
  const off_t data =
      static_cast<off_t>(from) < st.st_size ? ::lseek(fd_, static_cast<off_t>(from), SEEK_DATA) : st.st_size;
  // Nothing but a hole up to the end, which may have been cut off meanwhile.
  begin = end = static_cast<uint64_t>(st.st_size);
  if (data == st.st_size || (data < 0 && errno == ENXIO)) return true;
  const off_t hole = data < 0 ? -1 : ::lseek(fd_, data, SEEK_HOLE);
  if (hole < 0) {
    const int error = errno;
    (void)::lseek(fd_, static_cast<off_t>(from), SEEK_SET);
    errno = error;
    return false;
  }
  begin = static_cast<uint64_t>(data);
  end = static_cast<uint64_t>(hole);
  return ::lseek(fd_, data, SEEK_SET) >= 0;
}

/// What one call gives: 0 at the end, with errno 0.
ssize_t ifilebuf::read_some(char* to, size_t n) {
  ssize_t got;
  do {
    got = ::read(fd_, to, n);
  } while (got < 0 && errno == EINTR);
  if (got == 0) errno = 0;
  return got;
}

std::streamsize ifilebuf::xsgetn(char* to, std::streamsize n) {
  std::streamsize done = 0;
  while (done < n) {
    const std::streamsize missing = n - done;
    if (gptr() == egptr() && static_cast<size_t>(missing) >= direct_size) {
      const ssize_t got = read_some(to + done, static_cast<size_t>(missing));
      if (got <= 0) break;
      done += got;
      continue;
    }
    if (gptr() == egptr() && traits_type::eq_int_type(underflow(), traits_type::eof())) break;
    const std::streamsize part = std::min(missing, static_cast<std::streamsize>(egptr() - gptr()));
    std::memcpy(to + done, gptr(), static_cast<size_t>(part));
    setg(eback(), gptr() + part, egptr());
    done += part;
  }
  return done;
}

ifilebuf::int_type ifilebuf::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  if (!buffer_) buffer_.reset(new (std::nothrow) char[buffer_size_]);
  if (!buffer_) {
    errno = ENOMEM;
    return traits_type::eof();
  }
  const ssize_t got = read_some(buffer_.get(), buffer_size_);
  if (got <= 0) return traits_type::eof();
  setg(buffer_.get(), buffer_.get(), buffer_.get() + got);
  return traits_type::to_int_type(*gptr());
}

ofilebuf::ofilebuf(size_t buffer_size) : buffer_size_(std::max<size_t>(buffer_size, 1)) {}

ofilebuf::~ofilebuf() {
  close();
}

int ofilebuf::open(const char* path, int flags, int mode) {
  close();
  fd_ = open_without_waiting(path, flags, mode);
  if (fd_ < 0) return -1;
  if (::fcntl(fd_, F_SETFL, flags) != 0) return close_failed(fd_, errno);
  return 0;
}

int ofilebuf::close() {
  if (fd_ < 0) return 0;
  flush_buffer();
  const int error = error_;
  error_ = 0;
  setp(nullptr, nullptr);
  if (error != 0) return close_failed(fd_, error);
  return close_fd(fd_);
}

bool ofilebuf::write_all(const char* from, size_t n) {
  while (n > 0 && error_ == 0) {
    const ssize_t put = ::write(fd_, from, n);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) {
      error_ = errno;
      break;
    }
    from += put;
    n -= static_cast<size_t>(put);
  }
  errno = error_ != 0 ? error_ : errno;
  return error_ == 0;
}

bool ofilebuf::flush_buffer() {
  const bool ok = write_all(pbase(), static_cast<size_t>(pptr() - pbase()));
  setp(pbase(), epptr());
  return ok;
}

/// There is room for one more byte.
bool ofilebuf::need_room() {
  if (fd_ < 0) errno = EBADF;
  if (fd_ < 0 || !flush_buffer()) return false;
  if (!buffer_) buffer_.reset(new (std::nothrow) char[buffer_size_]);
  if (!buffer_) errno = error_ = ENOMEM;
  if (buffer_) setp(buffer_.get(), buffer_.get() + buffer_size_);
  return buffer_ != nullptr;
}

std::streamsize ofilebuf::xsputn(const char* from, std::streamsize n) {
  std::streamsize done = 0;
  while (done < n) {
    const std::streamsize missing = n - done;
    if (pptr() == pbase() && static_cast<size_t>(missing) >= direct_size)
      return fd_ >= 0 && write_all(from + done, static_cast<size_t>(missing)) ? n : done;
    if (pptr() == epptr() && !need_room()) break;
    const std::streamsize part = std::min(missing, static_cast<std::streamsize>(epptr() - pptr()));
    std::memcpy(pptr(), from + done, static_cast<size_t>(part));
    pbump(static_cast<int>(part));
    done += part;
  }
  return done;
}

bool ofilebuf::skip_to(uint64_t offset) {
  if (fd_ < 0) errno = EBADF;
  if (fd_ < 0 || !flush_buffer()) return false;
  const off_t to = static_cast<off_t>(offset);
  const off_t now = ::lseek(fd_, 0, SEEK_CUR);
  if (now >= 0 && to < now) errno = EINVAL;
  if (now >= 0 && to >= now && ::ftruncate(fd_, to) == 0 && ::lseek(fd_, to, SEEK_SET) == to) return true;
  error_ = errno;
  return false;
}

ofilebuf::int_type ofilebuf::overflow(int_type c) {
  if (!need_room()) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

int ofilebuf::sync() {
  if (fd_ < 0 || !flush_buffer()) return -1;
  int copy = ::fcntl(fd_, F_DUPFD_CLOEXEC, 0);
  if (copy >= 0 && close_fd(copy) == 0) return 0;
  error_ = errno;
  return -1;
}

}  // namespace MTF_FS
