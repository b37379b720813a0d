// Any bytes as a medium: the reader ends, stays in bounds, and what it calls a good name is one.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "mtf/core/byte_source.h"
#include "mtf/core/checksum.h"
#include "mtf/core/layout.h"
#include "mtf/core/little_endian.h"
#include "mtf/core/set_reader.h"

namespace {

using namespace MTF;

class Source : public Byte_Source {
 public:
  explicit Source(const std::string& bytes) : bytes_(bytes) {}

  ssize_t read(uint64_t offset, char* buf, size_t n) override {
    if (offset >= bytes_.size()) return 0;
    const size_t part = std::min<uint64_t>(n, bytes_.size() - offset);
    std::memcpy(buf, bytes_.data() + offset, part);
    return static_cast<ssize_t>(part);
  }

 private:
  const std::string& bytes_;
};

void require(bool fact) {
  if (!fact) std::abort();
}

void check_name(const Set_Item& item) {
  const std::string path = "/" + item.entry.path + "/";
  require(path.find("/../") == path.npos && path.find("/./") == path.npos && path.find('\0') == path.npos);
  require(item.entry.path.empty() || path.find("//") == path.npos);
}

void read_medium(const std::string& bytes) {
  Source source(bytes);
  Set_Reader reader(source);
  Set_Header header;
  if (!reader.read_header(header)) return require(!reader.error().empty());
  Set_Item item;
  uint64_t last = 0;
  while (reader.next(item)) {
    require(item.offset > last);
    last = item.offset;
    if (item.type == Set_Item::END) return require(!reader.next(item));
    if (item.type != Set_Item::DIRECTORY && item.type != Set_Item::FILE) continue;
    require(item.data.offset + item.data.size <= bytes.size());
    if (!item.bad_name) check_name(item);
    Entry entry;
    File_Data data;
    File_End end;
    require(reader.read_entry(item.offset, entry, data) || item.bad_name);
    File_Extent extent;
    while (reader.read_extent(item.data, extent) && extent.size != 0) require(extent.offset > item.offset);
    require(reader.read_end(item.data, end) && end.next_offset > item.offset);
  }
  require(!reader.error().empty());
}

void repair(std::string& bytes, size_t at, size_t size) {
  put_le(&bytes[at + size - 2], header_checksum(&bytes[at], size - 2));
}

/// Checksums made right, so that what stands behind them is reached.
void repair_all(std::string& bytes) {
  for (size_t block = 0; block + header_size <= bytes.size(); block += block_size) {
    repair(bytes, block, header_size);
    size_t at = block + get_le<uint16_t>(&bytes[block + at_first_event]);
    while (at + stream_header_size <= bytes.size()) {
      repair(bytes, at, stream_header_size);
      const uint64_t length = get_le<uint64_t>(&bytes[at + 8]);
      if (get_le<uint32_t>(&bytes[at]) == stream_pad || length > bytes.size()) break;
      at = (at + stream_header_size + length + 3) / 4 * 4;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string bytes(reinterpret_cast<const char*>(data), size);
  read_medium(bytes);
  repair_all(bytes);
  read_medium(bytes);
  return 0;
}
