#pragma once

#include <cstdint>
#include <optional>

#include "kolt/export.h"
#include "mtf/core/byte_source.h"
#include "mtf/core/set_reader.h"
#include "mtf_backup/set/catalog_entry.h"
#include "mtf_backup/set/data_hash.h"
#include "mtf_backup/set/medium_set.h"

namespace MTF_BACKUP {

/**
 * Reads what the media hold of one entry after the other, and gives out nothing that is not what the catalog tells.
 *
 * Life: open() per entry, then next() up to the end; an entry may be left at any point.
 * Errors: false or -1 with errno. EBADMSG: damage, which has one line at LM_ERROR with object and offset.
 * Ownership: borrows the media, which outlive it, and from open() on the entry. Threads: one at a time.
 */
class TESSARIN_API Entry_Reader {
 public:
  explicit Entry_Reader(Medium_Set& media) : media_(media) {}

  /// Reads the block of an entry and compares type, sizes and extended attributes. Skipped entries have none.
  [[nodiscard]] bool open(const Catalog_Entry& entry);

  /// What the block tells: extended attributes, which the catalog knows by their hash only, and the bare name as path.
  const MTF::Entry& block() const { return block_; }
  /// Length of the file, with its holes.
  uint64_t file_size() const { return data_.sparse ? data_.file_size : data_.size; }

  /// What the writer noted of the file's data: from @a valid_size on it is filling unless that is FD_NONE.
  [[nodiscard]] bool damage(MTF::File_Damage& damage, uint64_t& valid_size);

  /**
   * The next piece of data, in the order of the file. What no piece covers is a hole.
   *
   * With the last piece all data was compared with its hash, so a file of one piece is known to be right before
   * anything of it is used.
   *
   * @param at     its place in the file.
   * @param bytes  as far as they lie in one frame; what it showed before is let go.
   * @retval 1 a piece, never empty.  @retval 0 the end.  @retval -1 failed.
   */
  [[nodiscard]] int next(uint64_t& at, Frame_View& bytes);

 private:
  /// Tells failures of a medium, which has logged them, from those of what stands on it.
  struct Source : MTF::Byte_Source {
    ssize_t read(uint64_t offset, char* to, size_t n) override;

    Medium_Reader_var medium;
    int error = 0;
  };

  const char* read_block();
  const char* next_extent();
  const char* take(const Frame_View& bytes);
  const char* end_of_data() const;
  bool failed(uint64_t offset, const char* why);

  Medium_Set& media_;
  const Catalog_Entry* entry_ = nullptr;
  Source source_;
  std::optional<MTF::Set_Reader> reader_;
  MTF::Entry block_;
  MTF::File_Data data_;
  MTF::File_Extent extent_;  // what is left of the current one
  uint64_t left_ = 0;        // bytes of data still to come
  Data_Hash hash_;
};

}  // namespace MTF_BACKUP
