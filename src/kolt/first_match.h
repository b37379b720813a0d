#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "kolt/export.h"

/// What one search may take. A pattern such as "*/../*/../*" asks for more paths than a machine has memory.
struct Match_Limits {
  size_t bytes = 32 * 1024 * 1024;  ///< of the paths that are looked at, each with 64 for its upkeep
  std::chrono::milliseconds time = std::chrono::seconds(30);
};

/**
 * The first path, in the sorted order of glob(), that matches the glob pattern, as glob() without flags finds it:
 * nothing where none does or the search fails.
 *
 * A search that comes to one of its @a limits finds nothing, with one line at LM_WARNING; so does, at once, a pattern
 * that is longer than a path may be. Threads: any.
 */
TESSARIN_API std::optional<std::string> first_match(const std::string& pattern, const Match_Limits& limits = {});
