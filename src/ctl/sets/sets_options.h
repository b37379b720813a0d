#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace ctl {

struct Options;

/// What a command line says to the commands that work on the sets of a pool. Members that a command does not take keep
/// their defaults.
struct Sets_Options {
  bool asked = false;     ///< it is one of these commands
  std::string pool_file;  ///< JSON description of the pool; empty: --pool counts

  std::vector<std::string> sets;  ///< SET arguments
  std::string path;               ///< of "show"; empty: the set itself
  std::string pattern;            ///< of "find"
};

/// Adds "sets" with its commands; "sets" alone is "sets list".
void add_sets_commands(CLI::App& app, Options& options);

}  // namespace ctl
