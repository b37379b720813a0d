#pragma once

#include "mtf/core/error_code.h"

namespace MTF_BACKUP {

/// Counts a run that has ended, by how. @param operation  "backup" or "restore".
void count_run(const char* operation, MTF::Error_Code code);

}  // namespace MTF_BACKUP
