#pragma once

#include <vector>

#include "kolt/secure_memory.h"

/// The result of a codec, which works at its construction. It is wiped when it dies. Threads: may be shared.
template <typename T>
class Codec_Impl_T {
 public:
  /// Whether it worked. If not, there is no result.
  explicit operator bool() const { return good_; }
  /// The result, length() elements, valid as long as the codec; may be null where there are none.
  const T* get() const { return result_.data(); }
  unsigned long length() const { return result_.size(); }

 protected:
  Codec_Impl_T() = default;
  ~Codec_Impl_T() = default;

  // A vector has no room inside itself, so that short results are wiped too.
  std::vector<T, secure_allocator<T>> result_;
  bool good_ = false;
};
