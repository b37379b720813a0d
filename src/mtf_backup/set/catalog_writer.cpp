#include "mtf_backup/set/catalog_writer.h"

#include <zstd.h>

#include <cerrno>
#include <string_view>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "mtf_backup/set/catalog_format.h"
#include "mtf_backup/set/hash.h"
#include "mtf_backup/set/hashed_writer.h"
#include "mtf_backup/set/wire.h"

namespace MTF_BACKUP {

namespace {

constexpr int catalog_level = 3;

struct Free_Context {
  void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
};

}  // namespace

class Catalog_Writer::Impl {
 public:
  Impl(Client_IO_Base& storage, const std::string& set_dir, const std::string& set_uuid)
      : storage_(storage), set_dir_(set_dir), identity_(object_identity(set_uuid, set_dir, catalog_name)) {}

  bool open() {
    compressor_.reset(ZSTD_createCCtx());
    if (!compressor_) return fail(ENOMEM);
    std::string header(catalog_magic, sizeof catalog_magic - 1);
    put(header, hash64(header, identity_));
    return keep(writer_.open(storage_, set_dir_, catalog_name) && writer_.write(header.data(), header.size()));
  }

  bool append(const Catalog_Entry& entry) {
    if (error_ != 0) return fail(error_);
    if (entries_ > 0 && catalog_order(last_, entry) >= 0) return refuse(entry, "it is out of order");
    const size_t before = block_.size();
    if (before == 0) first_ = entry;
    put_entry(block_, entry, before == 0 ? std::string_view() : std::string_view(last_.path));
    if (block_.size() - before > max_entry_size || entry.path.size() > max_entry_size)
      return refuse(entry, "it is too long");
    last_ = entry;
    ++entries_;
    ++block_entries_;
    return block_.size() < block_size || keep(close_block());
  }

  bool finish() {
    if (error_ != 0) return fail(error_);
    return keep((block_.empty() || close_block()) && write_end() && writer_.commit(object_));
  }

  uint64_t entries() const { return entries_; }
  const Stored_Object& object() const { return object_; }

 private:
  bool fail(int error) {
    errno = error_ = error;
    return false;
  }
  bool keep(bool done) { return done || fail(errno); }

  bool refuse(const Catalog_Entry& entry, const char* reason) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to add an entry to the catalog, %C: \"%C\".\n"), reason,
               printable(entry.path).c_str()));
    return fail(EINVAL);
  }

  bool close_block() {
    add_to_index();
    if (index_.size() + check_size > max_index_size) return refuse(first_, "its index of blocks is full");
    if (!compress(block_)) return false;
    std::string header;
    put(header, static_cast<uint32_t>(packed_.size()));
    put(header, static_cast<uint32_t>(block_.size()));
    put(header, block_entries_);
    put(header, uint32_t(0));
    const uint64_t seed = block_seed(identity_, blocks_);
    put(header, hash64(packed_, hash64(header, seed)));
    block_.clear();
    block_entries_ = 0;
    ++blocks_;
    return writer_.write(header.data(), header.size()) && writer_.write(packed_.data(), packed_.size());
  }

  // Where a block begins and which entry is its first.
  void add_to_index() {
    put(index_, writer_.size());
    put(index_, first_.source);
    put(index_, static_cast<uint32_t>(first_.is_directory()));
    put_text(index_, first_.path);
  }

  bool compress(const std::string& plain) {
    packed_.resize(ZSTD_compressBound(plain.size()));
    const size_t size =
        ZSTD_compressCCtx(compressor_.get(), packed_.data(), packed_.size(), plain.data(), plain.size(), catalog_level);
    if (ZSTD_isError(size)) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to compress a block of the catalog: %C.\n"), ZSTD_getErrorName(size)));
      errno = ENOMEM;
      return false;
    }
    packed_.resize(size);
    return true;
  }

  bool write_end() {
    const uint64_t index_offset = writer_.size();
    put(index_, hash64(index_, identity_));
    std::string trailer;
    put(trailer, index_offset);
    put(trailer, static_cast<uint64_t>(index_.size()));
    put(trailer, blocks_);
    put(trailer, entries_);
    put(trailer, hash64(trailer, identity_));
    return writer_.write(index_.data(), index_.size()) && writer_.write(trailer.data(), trailer.size());
  }

  Client_IO_Base& storage_;
  const std::string set_dir_;
  const uint64_t identity_;
  Hashed_Writer writer_;
  std::unique_ptr<ZSTD_CCtx, Free_Context> compressor_;
  int error_ = 0;
  std::string block_;   // plain entries so far
  std::string packed_;  // the block closed last, compressed
  std::string index_;
  Catalog_Entry first_;  // of the block
  Catalog_Entry last_;
  uint32_t block_entries_ = 0;
  uint64_t blocks_ = 0;
  uint64_t entries_ = 0;
  Stored_Object object_;
};

Catalog_Writer::Catalog_Writer(Client_IO_Base& storage, const std::string& set_dir, const std::string& set_uuid)
    : impl_(std::make_unique<Impl>(storage, set_dir, set_uuid)) {}

Catalog_Writer::~Catalog_Writer() = default;

bool Catalog_Writer::open() {
  return impl_->open();
}
bool Catalog_Writer::append(const Catalog_Entry& entry) {
  return impl_->append(entry);
}
bool Catalog_Writer::finish() {
  return impl_->finish();
}
uint64_t Catalog_Writer::entries() const {
  return impl_->entries();
}
const Stored_Object& Catalog_Writer::object() const {
  return impl_->object();
}

}  // namespace MTF_BACKUP
