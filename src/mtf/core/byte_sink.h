#pragma once

#include <cstddef>
#include <cstdint>

#include "kolt/export.h"

namespace MTF {

/**
 * Where the bytes of a medium go, in order. The sink lends its own memory, so that file data is read straight into it.
 * One thread at a time.
 */
class TESSARIN_API Byte_Sink {
 public:
  virtual ~Byte_Sink();

  /// Memory to fill next: at least 1 byte, the same place until advance(). May wait. False, with errno: stop; the sink
  /// has logged why.
  virtual bool space(char*& at, size_t& avail) = 0;
  /// The first @a n bytes of that memory are filled, n <= avail. False as for space().
  virtual bool advance(size_t n) = 0;
  /// How many bytes have been taken: the offset in the medium of what space() lends.
  virtual uint64_t offset() const = 0;
};

}  // namespace MTF
