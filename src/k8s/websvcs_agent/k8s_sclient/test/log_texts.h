#pragma once

#include <string>
#include <vector>

#include "support/log_capture.h"

/// Whether there is one line at LM_EMERGENCY, that of a failed check in @a unit, with @a what behind the line number.
/// In front of the unit may stand the directory that the compiler was given.
inline bool is_only_check_failure(const test_support::Log_Capture& log, const std::string& unit,
                                  const std::string& what) {
  const std::string begin = "Unexpected error in ";
  const std::vector<std::string> lines = log.texts(LM_EMERGENCY);
  if (lines.size() != 1 || lines[0].compare(0, begin.size(), begin) != 0) return false;
  const size_t colon = lines[0].find(unit + ":");
  if (colon == std::string::npos || lines[0].find_first_of(" \n", begin.size()) < colon) return false;
  const size_t digits = colon + unit.size() + 1;
  const size_t comma = lines[0].find_first_not_of("0123456789", digits);
  return comma != std::string::npos && comma > digits && lines[0].compare(comma, what.size() + 2, ", " + what) == 0;
}
