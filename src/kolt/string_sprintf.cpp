#include "kolt/string_sprintf.h"

#include <cerrno>
#include <cstdio>
#include <new>

namespace kolt {

namespace {

constexpr std::size_t grow_size = 128;

// Cuts out what was written behind offset; without a text before it the memory goes as well.
void drop_text(std::string& out, std::size_t offset) {
  if (offset == 0)
    std::string().swap(out);
  else
    out.resize(offset);
}

int format(std::string& out, std::size_t offset, const char* fmt, va_list ap) {
  for (;;) {
    std::size_t avail = out.size() - offset;
    if (avail < grow_size) {
      avail = grow_size;
      out.resize(offset + avail);
    }
    va_list copy;
    va_copy(copy, ap);
    const int n = std::vsnprintf(&out[offset], avail, fmt, copy);
    va_end(copy);
    if (n < 0) {
      drop_text(out, offset);
      return n;
    }
    std::size_t length = static_cast<std::size_t>(n);
    if (length < avail) {
      out.resize(offset + length);
      return static_cast<int>(out.size());
    }
    // Some formatters only tell that there is more: then it goes on by steps.
    if (length == avail + 1) length += grow_size;
    out.resize(offset + length + 1);
  }
}

}  // namespace

int string_vsprintf(std::string& out, const char* fmt, va_list ap, bool append) {
  const std::size_t offset = append ? out.size() : 0;
  try {
    return format(out, offset, fmt, ap);
  } catch (const std::exception&) {  // no memory, or longer than a string may be
    drop_text(out, offset);
    errno = ENOMEM;
    return -1;
  }
}

}  // namespace kolt
