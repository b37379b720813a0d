#include "mtf_backup/set/catalog_reader.h"

#include <zstd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

#include "mtf_backup/set/catalog_format.h"
#include "mtf_backup/set/damage.h"
#include "mtf_backup/set/hash.h"
#include "mtf_backup/set/medium.h"
#include "mtf_backup/set/open_object.h"
#include "mtf_backup/set/wire.h"

namespace MTF_BACKUP {

namespace {

// Where a block begins and which entry is its first.
struct Block_Place {
  uint64_t offset = 0;
  uint32_t source = 0;
  uint32_t directory = 0;
  std::string path;
};

struct Block_Header {
  uint32_t stored_size = 0;
  uint32_t plain_size = 0;
  uint32_t entries = 0;
  uint32_t zero = 0;
  uint64_t check = 0;
};

struct Free_Context {
  void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
};

constexpr size_t max_plain_block = block_size + max_entry_size;

}  // namespace

class Catalog_Reader::Impl {
 public:
  Impl(Client_IO_Base& storage, const std::string& set_dir, const std::string& set_uuid, uint64_t size)
      : storage_(storage),
        key_(set_dir + "/" + catalog_name),
        identity_(object_identity(set_uuid, set_dir, catalog_name)),
        size_(size) {}

  bool open() {
    decompressor_.reset(ZSTD_createDCtx());
    if (!decompressor_) {
      errno = ENOMEM;
      return false;
    }
    reader_ = open_object(storage_, key_, size_);
    return reader_ && check_header() && check_trailer();
  }

  int next(Catalog_Entry& entry) {
    if (held_) {
      held_ = false;
      entry = entry_;
      return 1;
    }
    const int got = advance();
    if (got == 1) entry = entry_;
    return got;
  }

  bool seek(uint32_t source, const std::string& path, bool directory) {
    held_ = false;
    if (!load_index()) return false;
    go_to(block_before(source, path, directory));
    for (;;) {
      const int got = advance();
      if (got < 1) return got == 0;
      if (catalog_order(entry_.source, entry_.path, entry_.is_directory(), source, path, directory) < 0) continue;
      held_ = true;
      return true;
    }
  }

  int find(uint32_t source, const std::string& path, Catalog_Entry& entry) {
    for (const bool directory : {true, false}) {
      if (path.empty() && !directory) continue;
      if (!seek(source, path, directory)) return -1;
      if (held_ && entry_.source == source && entry_.path == path && entry_.is_directory() == directory)
        return next(entry);
    }
    return 0;
  }

  uint64_t entries() const { return entries_; }

 private:
  // Reads the next entry into entry_; results as of next().
  int advance() {
    if (error_ != 0) {
      errno = error_;
      return -1;
    }
    while (block_.empty()) {
      if (number_ == blocks_) return 0;
      if (!load_block()) return fail();
    }
    const std::string last_path = entry_.path;
    const uint32_t last_source = entry_.source;
    const bool last_directory = entry_.is_directory();
    const bool first = first_in_block_;
    if (first) entry_.path.clear();
    if (const char* reason = get_entry(block_, entry_)) return fail(reason);
    if (have_last_ &&
        catalog_order(last_source, last_path, last_directory, entry_.source, entry_.path, entry_.is_directory()) >= 0)
      return fail("an entry is out of order");
    have_last_ = true;
    first_in_block_ = false;
    if (block_entries_ == 0 || (--block_entries_ == 0) != block_.empty())
      return fail("a block has not as many entries as it says");
    return 1;
  }

  int fail() {
    error_ = errno;
    block_ = {};
    return -1;
  }
  int fail(const char* reason) {
    tell_damage(key_, block_offset_, reason);
    return fail();
  }

  bool check_header() {
    if (size_ < catalog_header_size + catalog_trailer_size)
      return tell_damage(key_, 0, "it is too short for a catalog");
    char bytes[catalog_header_size];
    if (!read_exactly(*reader_, key_, 0, bytes, sizeof bytes)) return false;
    const std::string_view header(bytes, sizeof bytes);
    if (!header.starts_with(catalog_magic)) return tell_damage(key_, 0, "it does not begin like a catalog");
    return sealed(header) || tell_damage(key_, 0, "its header is not that of this set's catalog");
  }

  bool check_trailer() {
    const uint64_t at = size_ - catalog_trailer_size;
    char bytes[catalog_trailer_size];
    if (!read_exactly(*reader_, key_, at, bytes, sizeof bytes)) return false;
    const std::string_view trailer(bytes, sizeof bytes);
    if (!sealed(trailer)) return tell_damage(key_, at, "its trailer is not that of this set's catalog");
    index_offset_ = get_at<uint64_t>(trailer, 0);
    if (index_offset_ < catalog_header_size || index_offset_ > at ||
        at - index_offset_ != get_at<uint64_t>(trailer, 8) || at - index_offset_ < check_size)
      return tell_damage(key_, at, "its index of blocks is not where it should be");
    blocks_ = get_at<uint64_t>(trailer, 16);
    entries_ = get_at<uint64_t>(trailer, 24);
    if ((blocks_ == 0) != (index_offset_ == catalog_header_size))
      return tell_damage(key_, at + 16, "it has not as many blocks as it says");
    offset_ = catalog_header_size;
    return true;
  }

  bool sealed(std::string_view bytes) const {
    const std::string_view content = bytes.substr(0, bytes.size() - check_size);
    return get_at<uint64_t>(bytes, content.size()) == hash64(content, identity_);
  }

  bool load_block() {
    block_offset_ = offset_;
    if (index_offset_ - offset_ < block_header_size) return tell_damage(key_, offset_, "a block is missing");
    char bytes[block_header_size];
    if (!read_exactly(*reader_, key_, offset_, bytes, sizeof bytes)) return false;
    Block_Header header;
    std::memcpy(&header, bytes, sizeof header);
    if (header.stored_size > index_offset_ - offset_ - block_header_size ||
        header.stored_size > ZSTD_compressBound(max_plain_block) || header.plain_size > max_plain_block)
      return tell_damage(key_, offset_, "a block has a size that cannot be");
    packed_.resize(header.stored_size);
    if (!read_exactly(*reader_, key_, offset_ + block_header_size, packed_.data(), packed_.size())) return false;
    const uint64_t seed = block_seed(identity_, number_);
    if (hash64(packed_, hash64({bytes, block_header_size - check_size}, seed)) != header.check)
      return tell_damage(key_, offset_, "a block is not what was written");
    if (!decompress(header.plain_size)) return tell_damage(key_, offset_, "a block cannot be decompressed");
    offset_ += block_header_size + header.stored_size;
    if (++number_ == blocks_ && offset_ != index_offset_)
      return tell_damage(key_, offset_, "there is something behind the last block");
    block_entries_ = header.entries;
    first_in_block_ = true;
    return true;
  }

  bool decompress(size_t plain_size) {
    plain_.resize(plain_size);
    const size_t got =
        ZSTD_decompressDCtx(decompressor_.get(), plain_.data(), plain_size, packed_.data(), packed_.size());
    block_ = plain_;
    return plain_size > 0 && got == plain_size;
  }

  bool load_index() {
    if (index_.size() == blocks_) return true;
    const uint64_t size = size_ - catalog_trailer_size - index_offset_;
    if (size > max_index_size) return tell_damage(key_, index_offset_, "its index of blocks is larger than it can be");
    std::string bytes(static_cast<size_t>(size), '\0');
    if (!read_exactly(*reader_, key_, index_offset_, bytes.data(), bytes.size())) return false;
    if (!sealed(bytes)) return tell_damage(key_, index_offset_, "its index of blocks is not what was written");
    Wire_Reader wire(std::string_view(bytes).substr(0, bytes.size() - check_size));
    while (wire.ok() && wire.left() > 0) {
      Block_Place place;
      wire.get(place.offset);
      wire.get(place.source);
      wire.get(place.directory);
      wire.get_text(place.path);
      const bool right = place.offset >= catalog_header_size && place.offset < index_offset_;
      if (!wire.ok() || !right) break;
      index_.push_back(std::move(place));
    }
    if (index_.size() == blocks_ && wire.left() == 0) return true;
    index_.clear();
    return tell_damage(key_, index_offset_, "its index of blocks does not name all blocks");
  }

  // The last block that does not begin behind the entry; the first one where all do.
  size_t block_before(uint32_t source, const std::string& path, bool directory) const {
    const auto behind = std::partition_point(index_.begin(), index_.end(), [&](const Block_Place& place) {
      return catalog_order(place.source, place.path, place.directory != 0, source, path, directory) <= 0;
    });
    return behind == index_.begin() ? 0 : static_cast<size_t>(behind - index_.begin()) - 1;
  }

  void go_to(size_t number) {
    number_ = number;
    offset_ = number < index_.size() ? index_[number].offset : index_offset_;
    block_ = {};
    error_ = 0;
    have_last_ = false;
  }

  Client_IO_Base& storage_;
  const std::string key_;
  const uint64_t identity_;
  const uint64_t size_;
  std::unique_ptr<Client_IO_Base::Reader> reader_;
  std::unique_ptr<ZSTD_DCtx, Free_Context> decompressor_;
  uint64_t index_offset_ = 0;
  uint64_t blocks_ = 0;
  uint64_t entries_ = 0;
  std::vector<Block_Place> index_;  // once load_index() was called

  uint64_t number_ = 0;        // of the block to load next
  uint64_t offset_ = 0;        // where it lies
  uint64_t block_offset_ = 0;  // of the block loaded last
  std::string packed_;
  std::string plain_;
  std::string_view block_;  // what is left of plain_
  uint32_t block_entries_ = 0;
  bool first_in_block_ = false;
  bool have_last_ = false;  // entry_ is the one before the next
  bool held_ = false;       // entry_ was found by seek() and not given out yet
  Catalog_Entry entry_;
  int error_ = 0;
};

Catalog_Reader::Catalog_Reader(Client_IO_Base& storage, const std::string& set_dir, const std::string& set_uuid,
                               uint64_t size)
    : impl_(std::make_unique<Impl>(storage, set_dir, set_uuid, size)) {}

Catalog_Reader::~Catalog_Reader() = default;

bool Catalog_Reader::open() {
  return impl_->open();
}
int Catalog_Reader::next(Catalog_Entry& entry) {
  return impl_->next(entry);
}
bool Catalog_Reader::seek(uint32_t source, const std::string& path, bool directory) {
  return impl_->seek(source, path, directory);
}
int Catalog_Reader::find(uint32_t source, const std::string& path, Catalog_Entry& entry) {
  return impl_->find(source, path, entry);
}
uint64_t Catalog_Reader::entries() const {
  return impl_->entries();
}

}  // namespace MTF_BACKUP
