#pragma once

#include <cstddef>

#include "kolt/export.h"

namespace client_io {

/**
 * The memory of this process for parts of uploads, beyond one part of each writer, which needs none of it. So a writer
 * that gets nothing goes on, with one part at a time. Threads: any.
 */
class TESSARIN_API S3_Part_Budget {
 public:
  static constexpr size_t size = size_t(64) << 20;

  /// False: there is not so much left. A part larger than all is given where nothing else is taken.
  [[nodiscard]] static bool take(size_t bytes);
  static void give_back(size_t bytes);
};

}  // namespace client_io
