#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

// Numbers and texts as they stand in stored objects: little-endian, packed; a text is its length and its bytes.
namespace MTF_BACKUP {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "numbers are stored as they lie in memory");

template <typename Number>
void put(std::string& to, Number value) {
  to.append(reinterpret_cast<const char*>(&value), sizeof value);
}

inline void put_text(std::string& to, std::string_view text) {
  put(to, static_cast<uint32_t>(text.size()));
  to += text;
}

/// The number at @a offset; the caller has checked that it lies within.
template <typename Number>
Number get_at(std::string_view from, size_t offset) {
  Number value;
  std::memcpy(&value, from.data() + offset, sizeof value);
  return value;
}

/// Takes numbers and texts off the front of bytes that nobody vouches for. After the first that does not fit ok() is
/// false and all that follow are 0 or empty.
class Wire_Reader {
 public:
  explicit Wire_Reader(std::string_view bytes) : left_(bytes) {}

  template <typename Number>
  void get(Number& value) {
    const std::string_view bytes = take(sizeof value);
    value = ok_ ? get_at<Number>(bytes, 0) : Number(0);
  }
  void get_text(std::string& value) { value = text(); }
  std::string_view text() {
    uint32_t size = 0;
    get(size);
    return take(size);
  }

  bool ok() const { return ok_; }
  size_t left() const { return left_.size(); }

 private:
  std::string_view take(size_t n) {
    if (n > left_.size()) ok_ = false;
    if (!ok_) return {};
    const std::string_view bytes = left_.substr(0, n);
    left_.remove_prefix(n);
    return bytes;
  }

  std::string_view left_;
  bool ok_ = true;
};

}  // namespace MTF_BACKUP
