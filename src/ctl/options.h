#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ctl/agent.h"
#include "ctl/cluster_options.h"
#include "ctl/sets/sets_options.h"

namespace ctl {

/// What a command line says. Members that the command does not take keep their defaults.
struct Options {
  std::string command;  ///< its words: "backup", "secret encrypt", "cluster info"

  std::string agent;
  std::string token_file;
  std::string ca_file;     ///< of --agent; empty: the system's store
  std::string agent_name;  ///< what the agent's certificate names; empty: the host in --agent
  bool json = false;

  std::string pool;       ///< URL; empty: the agent's default
  std::string pool_file;  ///< JSON description of the pool; empty: "pool" counts
  std::string host;       ///< empty: the agent's host, for "sets" all hosts
  std::string resource;   ///< for "sets", empty: all resources

  std::string name;
  unsigned channels = 2;
  bool incremental = false;
  std::string compression = "auto";
  int level = 1;
  std::optional<uint32_t> seq;
  uint32_t incarnation = 0;
  std::vector<std::string> patterns;  ///< of "backup", "size"
  std::vector<std::string> targets;   ///< of "restore": NAME=TARGET

  std::string job;
  bool watch = false;
  unsigned limit = 20;
  uint16_t port = 0;  ///< of "dashboard"; 0: any

  std::string public_key;  ///< of "secret encrypt": PEM file

  Cluster_Options cluster;
  Sets_Options sets;
};

/// Who the agent has to prove to be, and what it is shown.
inline Agent_Trust trust_of(const Options& options) {
  return {options.token_file, options.ca_file, options.agent_name};
}

/**
 * Reads a command line.
 *
 * @retval true   @a options is filled in.
 * @retval false  the program ends with @a exit_code: help or the version was printed to @a out (0), or what is wrong
 * with the command line to @a err (2).
 */
bool parse_options(int argc, const char* const* argv, Options& options, int& exit_code, std::ostream& out,
                   std::ostream& err);

}  // namespace ctl
