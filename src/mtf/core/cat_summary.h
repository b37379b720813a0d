#pragma once

#include "ace/Basic_Types.h"

namespace MTF {

/// The figures of one run of the data mover, for a backup and for a restore alike.
struct Cat_Summary {
  ACE_UINT64 total_size = 0;     ///< bytes of all regular files that the run looked at
  ACE_UINT64 inc_size = 0;       ///< bytes of file data that it wrote or read; less than total_size in an incremental
  ACE_UINT64 storage_size = 0;   ///< bytes that the set takes in the storage
  ACE_UINT64 file_count = 0;     ///< entries that are no directories
  ACE_UINT64 dir_count = 0;      ///< directories
  ACE_UINT64 skipped_count = 0;  ///< entries left out because they could not be read or written
  ACE_UINT64 corrupt_count = 0;  ///< files in the set whose content is not what the file held
};

}  // namespace MTF
