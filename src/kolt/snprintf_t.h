#pragma once

#include <concepts>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

/**
 * A formatted text that needs no heap while it is shorter than @a N.
 *
 * @code
 *   ACE_ERROR((LM_ERROR, "%C\n", snprintf_t<64, char>("%d of %d", i, n).c_str()));
 * @endcode
 */
template <std::size_t N, std::same_as<char> Char = char>
class snprintf_t {
 public:
  snprintf_t() = default;
  __attribute__((format(printf, 2, 3))) explicit snprintf_t(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vset(fmt, ap);
    va_end(ap);
  }
  snprintf_t(const snprintf_t&) = delete;
  snprintf_t& operator=(const snprintf_t&) = delete;
  ~snprintf_t() { std::free(ptr_); }

  const char* c_str() const { return ptr_ != nullptr ? ptr_ : buf_; }
  char* data() { return ptr_ != nullptr ? ptr_ : buf_; }
  int length() const { return len_; }

  /// Formats anew. @return the length, or -1 when formatting failed or there is no memory: then the text is empty.
  __attribute__((format(printf, 2, 3))) int set(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const int length = vset(fmt, ap);
    va_end(ap);
    return length;
  }

  /// As set().
  int vset(const char* fmt, va_list ap) {
    for (;;) {
      const std::size_t size = ptr_ != nullptr ? size_ : N;
      va_list copy;
      va_copy(copy, ap);
      len_ = std::vsnprintf(data(), size, fmt, copy);
      va_end(copy);
      if (len_ < 0) return fail();
      if (static_cast<std::size_t>(len_) < size) return len_;
      // Some formatters only tell that there is more.
      const std::size_t wanted = static_cast<std::size_t>(len_) == size + 1 ? len_ * std::size_t{2} : len_;
      char* block = static_cast<char*>(std::realloc(ptr_, wanted + 1));
      if (block == nullptr) return fail();
      ptr_ = block;
      size_ = wanted + 1;
    }
  }

 private:
  int fail() {
    data()[0] = '\0';
    len_ = 0;
    return -1;
  }

  char buf_[N] = {};
  int len_ = 0;
  char* ptr_ = nullptr;
  std::size_t size_ = 0;
};
