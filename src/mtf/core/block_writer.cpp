#include "mtf/core/block_writer.h"

#include <algorithm>
#include <cstring>

#include "mtf/core/byte_sink.h"
#include "mtf/core/checksum.h"
#include "mtf/core/layout.h"
#include "mtf/core/little_endian.h"

namespace MTF {

Block_Writer::Block_Writer(Byte_Sink& sink) : sink_(sink), offset_(sink.offset()) {}

bool Block_Writer::put(std::string_view bytes) {
  while (!bytes.empty()) {
    char* at;
    size_t avail;
    if (!room(at, avail)) return false;
    const size_t n = std::min(avail, bytes.size());
    std::memcpy(at, bytes.data(), n);
    if (!filled(n)) return false;
    bytes.remove_prefix(n);
  }
  return true;
}

bool Block_Writer::zeros(size_t n) {
  while (n > 0) {
    char* at;
    size_t avail;
    if (!room(at, avail)) return false;
    const size_t part = std::min(avail, n);
    std::memset(at, 0, part);
    if (!filled(part)) return false;
    n -= part;
  }
  return true;
}

bool Block_Writer::stream(uint32_t id, uint16_t attributes, uint64_t length, uint16_t system_attributes) {
  char header[stream_header_size] = {};
  put_le(header, id);
  put_le(header + 4, system_attributes);
  put_le(header + 6, attributes);
  put_le(header + 8, length);
  put_le(header + 20, header_checksum(header, 20));
  return zeros(-offset_ % stream_alignment) && put({header, sizeof header});
}

bool Block_Writer::pad() {
  const uint64_t data = (offset_ + stream_alignment - 1) / stream_alignment * stream_alignment + stream_header_size;
  const uint64_t length = -data % block_size;
  return stream(stream_pad, 0, length) && zeros(length);
}

bool Block_Writer::room(char*& at, size_t& avail) {
  if (avail_ == 0 && (!flush() || !sink_.space(at_, avail_))) return false;
  at = at_;
  avail = avail_;
  return true;
}

bool Block_Writer::filled(size_t n) {
  at_ += n;
  avail_ -= n;
  pending_ += n;
  offset_ += n;
  return avail_ > 0 || flush();
}

bool Block_Writer::flush() {
  const size_t n = pending_;
  pending_ = 0;
  avail_ = 0;
  return n == 0 || sink_.advance(n);
}

}  // namespace MTF
