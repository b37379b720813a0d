#pragma once

#include "kolt/export.h"

enum Job_Definition_Subtype {
  JOB_DEFINITION_SUBTYPE_FULL = 1,
  JOB_DEFINITION_SUBTYPE_INCREMENTAL = 2,
  JOB_DEFINITION_SUBTYPE_DIFFERENTIAL = 3
};

/// The Job_Definition_Subtype named "full", "incremental" or "differential"; @a default_value for any other text or
/// null.
TESSARIN_API int job_def_subtype_from_string(const char* text, int default_value);
