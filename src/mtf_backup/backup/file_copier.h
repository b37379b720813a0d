#pragma once

#include <cstdint>

#include "mtf/core/backup_callback.h"
#include "mtf/core/entry.h"
#include "mtf/core/set_writer.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/set/data_hash.h"

namespace MTF_BACKUP {

/// What came of reading a file.
struct File_Copy {
  uint64_t got = 0;        ///< up to here, holes counted, the medium has what the file held
  int error = 0;           ///< why it went no further; 0: the file is not as long as it was
  uint64_t data_size = 0;  ///< as in Catalog_Entry
  uint64_t data_hash = 0;
};

/**
 * Reads regular files onto a medium. A file with holes is written as its stretches of data, looked for as the reading
 * goes on, so that memory does not depend on their number. The medium always gets the file's listed length: what could
 * not be read is zeros or, in a file with holes, a hole.
 *
 * Progress counts holes as they are passed: it runs up to the size that a listing shows. Threads: one at a time.
 */
class File_Copier {
 public:
  /// Both are borrowed.
  File_Copier(MTF::Set_Writer& writer, Run_State& state) : writer_(writer), state_(state) {}

  /**
   * @param reader          open, at the start of the file.
   * @param entry           for the block; its stat.size is how much is read.
   * @param may_have_holes  whether to look for them. Where none are found the file is written in one piece.
   * @retval false  the run is stopping; a failed medium has been told to it.
   */
  [[nodiscard]] bool copy(MTF::IFile_Reader& reader, const MTF::Entry& entry, bool may_have_holes, File_Copy& result);

 private:
  struct Stretch {
    uint64_t begin = 0;
    uint64_t end = 0;
  };

  bool put_extents(MTF::IFile_Reader& reader, uint64_t size, Stretch data, File_Copy& result);
  bool put_extent(MTF::IFile_Reader& reader, const Stretch& data, File_Copy& result);
  bool next_data(MTF::IFile_Reader& reader, uint64_t from, Stretch& data);
  bool put(MTF::IFile_Reader& reader, uint64_t size, File_Copy& result);
  bool fill(uint64_t size);
  bool end(uint64_t size, File_Copy& result);
  bool write_failed();

  MTF::Set_Writer& writer_;
  Run_State& state_;
  Data_Hash hash_;
};

}  // namespace MTF_BACKUP
