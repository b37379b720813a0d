#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace ctl {

struct Options;

/// How many sets of each name are kept.
struct Retention {
  unsigned last = 0;    ///< the newest ones
  unsigned daily = 0;   ///< the newest of each of the last days that have a set
  unsigned weekly = 0;  ///< the same for weeks, which begin on Monday
};

/// What a command line says to the commands that work on the sets of a pool. Members that a command does not take keep
/// their defaults.
struct Sets_Options {
  bool asked = false;  ///< it is one of these commands

  std::vector<std::string> sets;  ///< SET arguments
  std::string path;               ///< of "show"; empty: the set itself
  std::string pattern;            ///< of "find"
  bool data = false;              ///< of "verify"

  std::vector<std::string> paths;  ///< of "restore"; empty: all
  std::string target;              ///< of "restore": a directory
  std::string format;              ///< of "export": "tar", "mtf"
  std::string file;                ///< of "export"; "-": the standard output

  bool with_dependents = false;
  bool ignore_damaged = false;
  bool dry_run = false;
  bool yes = false;
  Retention keep;
  std::string name;  ///< of "prune"; empty: all names
};

/// Adds what names a pool, for a command on sets and for a job.
void add_pool_options(CLI::App* command, Options& options);

/// Adds "sets" with its commands; "sets" alone is "sets list".
void add_sets_commands(CLI::App& app, Options& options);

}  // namespace ctl
