#include "mtf/core/own_streams.h"

#include <sys/sysmacros.h>

#include <cstring>

#include "mtf/core/little_endian.h"

namespace MTF {

namespace {

constexpr uint16_t unix_stat_version = 1;
constexpr uint32_t second = 1000000000;

void put_time(char* sec_at, char* nsec_at, const Timestamp& time) {
  put_le(sec_at, time.sec);
  put_le(nsec_at, time.nsec);
}

bool get_time(const char* sec_at, const char* nsec_at, Timestamp& time) {
  time.sec = get_le<int64_t>(sec_at);
  time.nsec = get_le<uint32_t>(nsec_at);
  return time.nsec < second;
}

void append_size(std::string& bytes, size_t size) {
  char number[4];
  put_le(number, static_cast<uint32_t>(size));
  bytes.append(number, sizeof number);
}

/// Takes @a size bytes off the front.
bool take(std::string_view& bytes, size_t size, std::string_view& taken) {
  if (bytes.size() < size) return false;
  taken = bytes.substr(0, size);
  bytes.remove_prefix(size);
  return true;
}

bool take_size(std::string_view& bytes, uint32_t& size) {
  std::string_view number;
  if (!take(bytes, sizeof size, number)) return false;
  size = get_le<uint32_t>(number.data());
  return true;
}

}  // namespace

void put_unix_stat(char* at, const Entry_Stat& st) {
  std::memset(at, 0, unix_stat_size);
  put_le(at, unix_stat_version);
  put_le(at + 4, st.mode);
  put_le(at + 8, st.uid);
  put_le(at + 12, st.gid);
  put_le(at + 16, static_cast<uint32_t>(major(st.rdev)));
  put_le(at + 20, static_cast<uint32_t>(minor(st.rdev)));
  put_le(at + 24, st.dev);
  put_le(at + 32, st.ino);
  put_le(at + 40, st.nlink);
  put_le(at + 48, st.size);
  put_time(at + 56, at + 80, st.atime);
  put_time(at + 64, at + 84, st.mtime);
  put_time(at + 72, at + 88, st.ctime);
}

bool get_unix_stat(std::string_view bytes, Entry_Stat& st) {
  if (bytes.size() < unix_stat_size || get_le<uint16_t>(bytes.data()) == 0) return false;
  const char* at = bytes.data();
  st.mode = get_le<uint32_t>(at + 4);
  st.uid = get_le<uint32_t>(at + 8);
  st.gid = get_le<uint32_t>(at + 12);
  st.rdev = makedev(get_le<uint32_t>(at + 16), get_le<uint32_t>(at + 20));
  st.dev = get_le<uint64_t>(at + 24);
  st.ino = get_le<uint64_t>(at + 32);
  st.nlink = get_le<uint64_t>(at + 40);
  st.size = get_le<uint64_t>(at + 48);
  return get_time(at + 56, at + 80, st.atime) && get_time(at + 64, at + 84, st.mtime) &&
         get_time(at + 72, at + 88, st.ctime);
}

size_t xattrs_size(const Xattrs& attrs) {
  size_t size = sizeof(uint32_t);
  for (const auto& [name, value] : attrs) size += 2 * sizeof(uint32_t) + name.size() + value.size();
  return size;
}

void put_xattrs(std::string& bytes, const Xattrs& attrs) {
  append_size(bytes, attrs.size());
  for (const auto& [name, value] : attrs) {
    append_size(bytes, name.size());
    append_size(bytes, value.size());
    bytes += name;
    bytes += value;
  }
}

bool get_xattrs(std::string_view bytes, Xattrs& attrs) {
  uint32_t count = 0;
  if (!take_size(bytes, count)) return false;
  attrs.clear();
  for (; count > 0; --count) {
    uint32_t name_size = 0;
    uint32_t value_size = 0;
    std::string_view name;
    std::string_view value;
    if (!take_size(bytes, name_size) || !take_size(bytes, value_size) || !take(bytes, name_size, name) ||
        !take(bytes, value_size, value))
      return false;
    attrs.emplace_back(name, value);
  }
  return bytes.empty();
}

}  // namespace MTF
