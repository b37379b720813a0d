#include "mtf_backup/set/lzop_member.h"

#include <lzo/lzo1x.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "mtf_backup/set/frame.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t block_size = size_t(256) << 10;  // of lzop
constexpr size_t compressed_capacity = block_size + block_size / 16 + 64 + 3;
constexpr size_t work_size = LZO1X_999_MEM_COMPRESS;
static_assert(work_size >= LZO1X_1_15_MEM_COMPRESS && work_size >= LZO1X_1_MEM_COMPRESS);

constexpr unsigned char magic[] = {0x89, 'L', 'Z', 'O', 0, '\r', '\n', 0x1a, '\n'};
constexpr size_t header_size = 38;
constexpr size_t checksum_at = 34;
constexpr size_t block_header_size = 12;
constexpr size_t end_size = 4;
static_assert(frame_capacity >= frame_size + header_size + (frame_size / block_size) * block_header_size + end_size);

constexpr int default_level = 3;

unsigned char* octets(char* bytes) {
  return reinterpret_cast<unsigned char*>(bytes);
}
const unsigned char* octets(const char* bytes) {
  return reinterpret_cast<const unsigned char*>(bytes);
}

// Numbers of lzop have the high byte first.
void put(char* to, uint32_t value) {
  for (int i = 0; i < 4; ++i) to[i] = static_cast<char>(value >> (24 - 8 * i));
}
uint32_t get(const char* from) {
  uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value = value << 8 | octets(from)[i];
  return value;
}

uint32_t adler(const char* bytes, size_t n) {
  return lzo_adler32(1, octets(bytes), n);
}

// The methods of lzop: 1 is LZO1X-1, 2 LZO1X-1(15), 3 LZO1X-999.
unsigned char method_of(int level) {
  return level == 1 ? 2 : level < 7 ? 1 : 3;
}

// Without a name and a time, and with a checksum per block of the plain bytes.
void put_header(char* to, int level) {
  const unsigned char fixed[] = {0x10,
                                 0x40,
                                 0x20,
                                 0xa0,
                                 0x09,
                                 0x40,  // versions: lzop, liblzo2, lzop that is needed
                                 method_of(level),
                                 static_cast<unsigned char>(level),
                                 0x03,
                                 0,
                                 0,
                                 0x01};
  std::memset(to, 0, header_size);
  std::memcpy(to, magic, sizeof magic);
  std::memcpy(to + sizeof magic, fixed, sizeof fixed);
  put(to + checksum_at, adler(to + sizeof magic, checksum_at - sizeof magic));
}

bool is_header(const char* from) {
  const int level = from[sizeof magic + 7];
  char expected[header_size];
  if (level < 1 || level > 9) return false;
  put_header(expected, level);
  return std::memcmp(from, expected, header_size) == 0;
}

bool init() {
  static const bool good = lzo_init() == LZO_E_OK;
  return good;
}

}  // namespace

size_t Lzop_Member::compress(const char* plain, size_t size, int level, char* stored) {
  if (!work_) work_.reset(new (std::nothrow) char[work_size]);
  if (!block_) block_.reset(new (std::nothrow) char[compressed_capacity]);
  if (!work_ || !block_ || !init()) return 0;
  if (level == 0) level = default_level;
  put_header(stored, level);
  size_t at = header_size;
  for (size_t done = 0; done < size; done += block_size) {
    const size_t length = std::min(block_size, size - done);
    const size_t shrunk = compress_block(plain + done, length, level);
    const bool smaller = shrunk < length;  // otherwise lzop wants it as it is
    put(stored + at, static_cast<uint32_t>(length));
    put(stored + at + 4, static_cast<uint32_t>(smaller ? shrunk : length));
    put(stored + at + 8, adler(plain + done, length));
    std::memcpy(stored + at + block_header_size, smaller ? block_.get() : plain + done, smaller ? shrunk : length);
    at += block_header_size + (smaller ? shrunk : length);
  }
  put(stored + at, 0);
  return at + end_size;
}

size_t Lzop_Member::compress_block(const char* plain, size_t size, int level) {
  lzo_uint shrunk = compressed_capacity;
  unsigned char* const to = octets(block_.get());
  switch (method_of(level)) {
    case 1:
      lzo1x_1_compress(octets(plain), size, to, &shrunk, work_.get());
      break;
    case 2:
      lzo1x_1_15_compress(octets(plain), size, to, &shrunk, work_.get());
      break;
    default:
      lzo1x_999_compress_level(octets(plain), size, to, &shrunk, work_.get(), nullptr, 0, nullptr, level);
  }
  return shrunk;
}

bool Lzop_Member::decompress(const char* stored, size_t size, char* plain, size_t plain_size) {
  if (!init() || size < header_size + end_size || !is_header(stored)) return false;
  const char* at = stored + header_size;
  const char* const end = stored + size - end_size;
  size_t done = 0;
  while (done < plain_size) {
    if (static_cast<size_t>(end - at) < block_header_size) return false;
    const size_t length = get(at);
    const size_t shrunk = get(at + 4);
    const uint32_t checksum = get(at + 8);
    at += block_header_size;
    if (length == 0 || length > block_size || length > plain_size - done || shrunk > length ||
        shrunk > static_cast<size_t>(end - at))
      return false;
    lzo_uint got = length;
    if (shrunk == length)
      std::memcpy(plain + done, at, length);
    else if (lzo1x_decompress_safe(octets(at), shrunk, octets(plain + done), &got, nullptr) != LZO_E_OK)
      return false;
    if (got != length || adler(plain + done, length) != checksum) return false;
    at += shrunk;
    done += length;
  }
  return at == end && get(end) == 0;
}

}  // namespace MTF_BACKUP
