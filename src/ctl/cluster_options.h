#pragma once

#include <string>
#include <vector>

#include "k8s/api/k8s_def.h"

namespace CLI {
class App;
}

namespace ctl {

struct Options;

/// What a command line says to the commands that ask the cluster itself. Members that a command does not take keep
/// their defaults.
struct Cluster_Options {
  bool asked = false;  ///< it is one of these commands

  // Outside of the cluster; empty in a pod of it. All or none.
  std::string server;      ///< "https://HOST:PORT"
  std::string token_file;  ///< its first line is the token
  std::string ca_file;     ///< PEM

  bool verbose = false;  ///< the library's log goes to the standard error

  std::string ns;      ///< namespace; empty: all, or the command's default
  std::string search;  ///< empty: everything
  std::string name;    ///< the claim, pod, or namespace
  std::string copy;    ///< the copy of a claim; empty: a derived name
  bool wait = false;
  std::string container;
  std::vector<std::string> words;  ///< of "exec": program and arguments
  bool dry_run = false;
  bool yes = false;
  std::string file;                               ///< of "entries check"; of "sc check", empty: the agent's
  int timeout = K8S_UPDATE_CONFIG_RETRY_TIMEOUT;  ///< of "sc check", seconds
};

/// The namespace of a command that is content with "default".
std::string namespace_or_default(const Cluster_Options& options);

/// Adds "cluster", "pvc", "sc", "entries", "exec" and "clean".
void add_cluster_commands(CLI::App& app, Options& options);

}  // namespace ctl
