#include "kolt/job_definition_type.h"

#include <cstring>

namespace {

struct Subtype_Name {
  Job_Definition_Subtype subtype;
  const char* name;
};

constexpr Subtype_Name subtype_names[] = {
    {JOB_DEFINITION_SUBTYPE_FULL, "full"},
    {JOB_DEFINITION_SUBTYPE_INCREMENTAL, "incremental"},
    {JOB_DEFINITION_SUBTYPE_DIFFERENTIAL, "differential"},
};

}  // namespace

int job_def_subtype_from_string(const char* text, int default_value) {
  if (text == nullptr) return default_value;
  for (const Subtype_Name& one : subtype_names)
    if (std::strcmp(text, one.name) == 0) return one.subtype;
  return default_value;
}
