#include "mtf_backup/export/file_sink.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ace/Log_Msg.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t buffer_size = size_t(1) << 20;

}  // namespace

File_Sink::File_Sink(int fd) : fd_(fd), buffer_(new char[buffer_size]) {}

bool File_Sink::space(char*& at, size_t& avail) {
  if (filled_ == buffer_size && !flush()) return false;
  at = buffer_.get() + filled_;
  avail = buffer_size - filled_;
  return true;
}

bool File_Sink::advance(size_t n) {
  filled_ += n;
  offset_ += n;
  return filled_ < buffer_size || flush();
}

bool File_Sink::put(std::string_view bytes) {
  while (!bytes.empty()) {
    char* at = nullptr;
    size_t avail = 0;
    if (!space(at, avail)) return false;
    const size_t n = std::min(avail, bytes.size());
    std::memcpy(at, bytes.data(), n);
    if (!advance(n)) return false;
    bytes.remove_prefix(n);
  }
  return true;
}

bool File_Sink::flush() {
  for (size_t done = 0; error_ == 0 && done < filled_;) {
    const ssize_t written = ::write(fd_, buffer_.get() + done, filled_ - done);
    if (written >= 0) {
      done += static_cast<size_t>(written);
    } else if (errno != EINTR) {
      error_ = errno;
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to write the export: %m\n")));
    }
  }
  filled_ = 0;
  errno = error_;
  return error_ == 0;
}

}  // namespace MTF_BACKUP
