#pragma once

namespace MTF {

/// How an operation of the data mover or of a callback ended. The numbers are fixed: they are stored with job results.
enum Error_Code {
  E_FAILED = -1,
  E_OK = 0,
  E_SKIP = 1,
  E_CORRUPT = 2,
  E_NOT_FOUND = 3,
  E_UNKNOWN_NT_STREAM = 4,
  E_MKDIR = 5,
  E_UPLOAD_MTF_FILE_ERROR = 6,
  E_DOWNLOAD_CAT_ERROR = 7,
  E_GET_SOURCE_DATA = 8,
  E_WRITE_TO_STORAGE = 9,
  E_ADD_TO_CATALOG = 10,
  E_OPEN_MEDIA = 11,
  E_GET_POOL_INFO = 12,
  E_NO_FILES_BACKUPED = 13,
  E_END_WITH_SKIPPED_FILES = 14,
  E_NO_FILES_RESTORED = 15
};

}  // namespace MTF
