#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "kolt/export.h"
#include "mtf/core/block_reader.h"
#include "mtf/core/entry.h"
#include "mtf/core/set_info.h"

namespace MTF {

class Byte_Source;

/// Where the data of a file lies in the medium.
struct File_Data {
  uint64_t offset = 0;
  uint64_t size = 0;       ///< 0 where sparse
  bool present = false;    ///< there is a data stream, maybe of length 0
  bool sparse = false;     ///< the data is in extents: see Set_Reader::read_extent()
  uint64_t file_size = 0;  ///< with holes
};

/// One stretch of data of a sparse file.
struct File_Extent {
  uint64_t at = 0;      ///< its place in the file
  uint64_t offset = 0;  ///< its place in the medium
  uint64_t size = 0;    ///< 0: there is no more
};

/// What stands behind the data of a file.
struct File_End {
  bool corrupt = false;       ///< the writer marked the data as damaged; where and why is told by a Set_Item
  bool has_checksum = false;  ///< checksum is there
  uint32_t checksum = 0;      ///< of the data, see Xor_Checksum
  uint64_t next_offset = 0;   ///< of the block that follows
};

/// One thing met on the way through a medium.
struct Set_Item {
  enum Type { VOLUME, DIRECTORY, FILE, DAMAGE, END };

  Type type = END;
  uint64_t offset = 0;           ///< of its block
  Volume volume;                 ///< VOLUME
  Entry entry;                   ///< DIRECTORY, FILE: with the path relative to the volume
  bool bad_name = false;         ///< DIRECTORY, FILE: the path could lead elsewhere (".", "..", '/' or NUL in a name)
  File_Data data;                ///< FILE
  File_Damage damage = FD_NONE;  ///< DAMAGE: of the file before
  uint64_t valid_size = 0;       ///< DAMAGE: from here on the data of that file is filling
  uint32_t corrupt_files = 0;    ///< END: how many the writer counted
};

/**
 * Reads a medium, whoever wrote it: nothing in it is trusted. Blocks and streams of unknown types are passed over.
 *
 * An operation that fails returns false with one line in error() that names the offset, and logs nothing: the caller
 * knows the medium's name. Outputs are then undefined. Memory is bounded whatever the medium says. One thread at a
 * time.
 */
class TESSARIN_API Set_Reader {
 public:
  /// @a source outlives the reader.
  explicit Set_Reader(Byte_Source& source) : blocks_(source) {}

  /// Reads the start of the medium; next() goes on behind it.
  bool read_header(Set_Header& header);
  /// The next thing in order, END at the end of the set and never again. Fails before read_header(), after END and
  /// after a failure.
  bool next(Set_Item& item);

  /**
   * Reads the one directory or file whose block begins at @a offset, all but its data. Leaves next()'s place alone.
   *
   * @param entry for a file, path is its bare name: the directory is not told by its block. A name that could lead
   *   elsewhere is a failure.
   */
  bool read_entry(uint64_t offset, Entry& entry, File_Data& data);
  /**
   * Finds the next stretch of data of a sparse file.
   *
   * @param extent the one before, or as constructed for the first; at the end its size is 0. Extents may be in any
   * order and reach behind File_Data::file_size: that is the medium's fault.
   */
  bool read_extent(const File_Data& data, File_Extent& extent);
  /// Reads on behind the data of a file (or a directory's streams) that read_entry() or next() gave.
  bool read_end(const File_Data& data, File_End& end);
  /// Reads the note behind a file whose data is marked as damaged. FD_NONE where it is not.
  bool read_damage(const File_End& end, File_Damage& damage, uint64_t& valid_size);

  const std::string& error() const { return blocks_.error(); }

 private:
  bool parse_entry(Entry& entry, File_Data& data, bool& bad_name);
  bool parse_stream(const Stream& stream, Entry& entry);
  bool next_volume(Volume& volume);
  bool next_entry(Set_Item& item);
  void parse_damage(File_Damage& damage, uint64_t& valid_size) const;
  bool skip_streams(uint64_t at);

  Block_Reader blocks_;
  bool reading_ = false;   // between read_header() and END or a failure
  uint64_t position_ = 0;  // of the next block
  std::string directory_;  // path of the last directory block
  bool bad_directory_ = false;
};

}  // namespace MTF
