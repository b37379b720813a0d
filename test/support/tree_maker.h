#pragma once

#include <cstddef>
#include <string>

namespace test_support {

struct Tree_Options {
  std::size_t files = 1000;               ///< regular files, a hundred to a directory
  unsigned long long bytes = 10'000'000;  ///< of file content in all, about half of it compressible
  bool special = true;  ///< also links, FIFOs, odd names, modes, times and attributes; devices and owners as root
  unsigned seed = 1;    ///< equal options make equal trees
};

/// Fills @a root, made if need be. Throws std::runtime_error with the path and the reason when something cannot be
/// made.
void make_tree(const std::string& root, const Tree_Options& options);

}  // namespace test_support
