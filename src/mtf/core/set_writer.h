#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kolt/export.h"
#include "mtf/core/block_writer.h"
#include "mtf/core/checksum.h"
#include "mtf/core/entry.h"
#include "mtf/core/layout.h"
#include "mtf/core/set_info.h"

namespace MTF {

class Block;
class Byte_Sink;

/**
 * Writes one medium with one set, in this order of calls:
 *
 *     begin (volume (directory | begin_file (room filled)* end_file |
 *                    begin_sparse_file (begin_extent (room filled)*)* end_file)*)* end
 *
 * Every operation returns false when the sink did (errno is the sink's, which logged) or when the call makes no sense
 * (EINVAL, one LM_ERROR line), which is so as well for an entry that is larger than entry_text_max and entry_xattrs_max
 * allow; the writer is of no use after that. One thread at a time. Keeps no list of what it has written: memory does
 * not grow with the set.
 */
class TESSARIN_API Set_Writer {
 public:
  /// @a sink is at the start of the medium and outlives the writer.
  explicit Set_Writer(Byte_Sink& sink);

  bool begin(const Set_Header& header);
  /// What follows, up to the next volume, lies below this source. Its root is the directory with the empty path.
  bool volume(const Volume& volume);
  bool directory(const Entry& entry);
  /**
   * Anything but a directory. @a size bytes of data are to follow: 0 for what has none.
   *
   * A file goes behind its directory. Where the last directory written is another one, a block that only names the
   * right one goes before, so files of one directory may be spread over media.
   */
  bool begin_file(const Entry& entry, uint64_t size);
  /// A regular file with holes: @a size bytes with them. Where the file has data is told by begin_extent().
  bool begin_sparse_file(const Entry& entry, uint64_t size);
  /// @a length bytes of data, more than 0, are to follow, which stand at @a at in the file: behind the extent before.
  bool begin_extent(uint64_t at, uint64_t length);
  /// Memory for the next data of the file: never more than it still lacks, so 0 bytes once it is complete.
  bool room(char*& at, size_t& avail);
  /// The first @a n bytes of that memory hold data.
  bool filled(size_t n);
  /**
   * All announced bytes have been filled.
   *
   * @param damage anything but FD_NONE: bytes from @a valid_size on do not stem from the file (the caller has put zeros
   *   there); a note for readers goes with the file, and the set's end counts it
   */
  bool end_file(File_Damage damage = FD_NONE, uint64_t valid_size = 0);
  bool end();

  /// Where in the medium the block of the last volume, directory or file begins.
  uint64_t offset() const { return offset_; }
  /// How many files ended with a damage.
  uint32_t corrupt_files() const { return corrupt_files_; }

 private:
  enum State { NEW, BEGUN, IN_VOLUME, IN_FILE, ENDED };

  bool in_order(bool allowed, const char* call);
  bool in_limits(const Entry& entry);
  bool begin_block(Block& block);
  bool put_file_block(const Entry& entry, uint64_t size);
  bool put_directory(std::string_view path, const Entry* entry);
  bool put_name_stream(uint32_t id, std::string_view name, String_Type type);
  bool put_own_streams(const Entry& entry);
  bool put_damage(File_Damage damage, uint64_t valid_size);
  bool filemark();

  Block_Writer out_;
  State state_ = NEW;
  uint64_t offset_ = 0;
  uint64_t set_start_ = 0;  // offset of the set's first block
  int64_t time_ = 0;
  bool incremental_ = false;
  uint32_t control_block_id_ = 0;

  uint32_t filemarks_ = 0;
  std::vector<uint32_t> filemark_blocks_;  // where they are, newest first

  uint32_t directory_id_ = 0;
  uint32_t file_id_ = 0;
  std::string directory_;       // path of the last directory block
  bool has_directory_ = false;  // in this volume

  char* room_ = nullptr;     // what room() lent
  uint64_t missing_ = 0;     // data bytes of the file still to come
  uint16_t streams_ = 0;     // of the current block, by now
  bool has_data_ = false;    // the current file has a data stream
  bool sparse_ = false;      // in extents
  uint64_t extent_end_ = 0;  // where in the file the last one ends
  uint64_t file_size_ = 0;
  Xor_Checksum checksum_;  // of its data so far
  uint32_t corrupt_files_ = 0;
};

}  // namespace MTF
