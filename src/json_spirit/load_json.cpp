#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "json_spirit/json_reader.h"

namespace json_spirit {

namespace {

/// The descriptor of a regular file, or -1 with errno set. Never waits, as the opening of a FIFO would.
int open_regular(const char* path, std::size_t& size) {
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd == -1) return -1;
  struct stat st;
  int fault = ::fstat(fd, &st) == 0 ? 0 : errno;
  if (fault == 0 && !S_ISREG(st.st_mode)) fault = EINVAL;
  if (fault == 0) {
    size = static_cast<std::size_t>(st.st_size);
    return fd;
  }
  ::close(fd);
  errno = fault;
  return -1;
}

/// Reads to the end of the file, which may be longer or shorter by now than @a text.
bool read_all(int fd, String_type& text) {
  std::size_t filled = 0;
  for (;;) {
    if (filled == text.size()) text.resize(filled + 4096);
    const ssize_t n = ::read(fd, text.data() + filled, text.size() - filled);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) break;
    filled += static_cast<std::size_t>(n);
  }
  text.resize(filled);
  return true;
}

}  // namespace

bool loads_json(std::string_view text, Value& out) {
  Value document;
  if (!read_text(text, document)) return false;
  out = std::move(document);
  return true;
}

bool loads_json(const char* text, Value& out) {
  return text && loads_json(std::string_view(text), out);
}

bool load_json(const char* path, Value& out, int flag) {
  if (!path || flag != LOAD_STRICT) {
    errno = EINVAL;
    return false;
  }
  std::size_t size;
  const int fd = open_regular(path, size);
  if (fd == -1) return false;
  String_type text(size + 1, '\0');  // one more, so that the end is seen without growing
  const bool read = read_all(fd, text);
  const int fault = errno;
  ::close(fd);
  if (!read || !loads_json(std::string_view(text), out)) {
    errno = read ? EBADMSG : fault;
    return false;
  }
  return true;
}

}  // namespace json_spirit
