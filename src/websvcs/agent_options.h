#pragma once

#include <string>

/// What the agent's command line says. All paths are absolute.
struct Agent_Options {
  std::string svc_conf;  ///< which methods to bind; by default ../etc/svc.conf beside the program
  std::string state_dir = "/var/lib/tessarin";
  std::string socket;          ///< by default agent.sock in the state directory
  std::string listen_address;  ///< empty: no TCP
  unsigned short listen_port = 0;
  int answer_timeout = 600;  ///< seconds; 0: no limit
  std::string host_key;      ///< PEM file of the host's private key; empty: none

  /// @retval false  the program ends with @a exit_code: help was asked for, or the line is wrong; both have been
  /// printed.
  bool parse(int argc, char* argv[], int& exit_code);
};
