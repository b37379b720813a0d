#pragma once

#include <string_view>

#include "kolt/export.h"

namespace client_io {

/// What an answer's status and the code in its body mean.
struct S3_Verdict {
  int error = 0;       ///< 0 for a good answer, else an errno
  bool again = false;  ///< whether the same request may do better later
};

TESSARIN_API S3_Verdict s3_verdict(int status, std::string_view code);

}  // namespace client_io
