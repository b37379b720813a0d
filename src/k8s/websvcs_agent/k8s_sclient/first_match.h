#pragma once

#include <optional>
#include <string>

/// The first path, in sorted order, that matches the glob pattern; nothing where none does or the search fails.
std::optional<std::string> first_match(const std::string& pattern);
