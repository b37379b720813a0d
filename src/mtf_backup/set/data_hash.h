#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "kolt/export.h"
#include "mtf/core/callback_stat.h"

namespace MTF_BACKUP {

/// XXH3-64 of bytes that come in pieces. One thread at a time.
class TESSARIN_API Data_Hash {
 public:
  Data_Hash();
  void reset();
  void update(const void* data, size_t n);
  uint64_t value() const;

 private:
  struct Free_State {
    void operator()(void* state) const;
  };
  std::unique_ptr<void, Free_State> state_;
};

/// Tells whether extended attributes are the same; 0 for none.
TESSARIN_API uint64_t xattr_hash(const MTF::Xattrs& attrs);

}  // namespace MTF_BACKUP
