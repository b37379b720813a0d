#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "kolt/export.h"

namespace MTF {

/// A medium to read from, at any place. One thread at a time.
class TESSARIN_API Byte_Source {
 public:
  virtual ~Byte_Source();

  /// @return bytes read, less than @a n only at the end of the medium, 0 at or behind it; -1 with errno on an error,
  ///   which the source has logged.
  virtual ssize_t read(uint64_t offset, char* buf, size_t n) = 0;
};

}  // namespace MTF
