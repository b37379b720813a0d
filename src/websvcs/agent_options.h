#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// What the agent's command line says. All paths are absolute.
struct Agent_Options {
  std::string svc_conf;  ///< which methods to bind; by default ../etc/svc.conf beside the program
  std::string state_dir = "/var/lib/tessarin";
  std::string socket;          ///< by default agent.sock in the state directory
  std::string listen_address;  ///< empty: no TCP
  unsigned short listen_port = 0;
  int answer_timeout = 600;  ///< seconds; 0: no limit
  std::string host_key;      ///< PEM file of the host's private key; empty: none
  std::string check_pool;    ///< URL of the pool, or a file that describes it, that has to answer; empty: none
  std::string kubelet_dir = "/var/lib/kubelet";  ///< below which the node's volumes are mounted
  bool json_log = false;                         ///< one JSON object per line
  std::string config;                            ///< file that options were read from; empty: none

  // Who may call by TCP. What the agent makes of them is told in doc/access.md.
  std::string tls_cert;  ///< PEM file, the agent's certificate first; empty: no TLS
  std::string tls_key;   ///< PEM file; given exactly if tls_cert is
  std::string token_file;
  bool token_review = false;                  ///< the API server is asked for tokens that no file holds
  std::vector<std::string> token_audiences;   ///< what a reviewed token has to be made for; empty: the API server
  std::vector<std::string> allowed_accounts;  ///< "namespace/name" of service accounts

  // How other agents are called.
  bool peer_tls = false;
  std::string peer_ca;          ///< PEM file; empty: the cluster's CA
  std::string peer_name;        ///< what their certificates name; empty: the address that is called
  std::string peer_token_file;  ///< empty: the service account's

  // What callers may take.
  int idle_timeout = 60;   ///< seconds between two requests; 0: no limit
  size_t max_batch = 100;  ///< messages
  size_t max_connections = 256;
  size_t max_connections_per_peer = 128;  ///< of an address or a user
  size_t max_request_bytes = 4 * 1024 * 1024;

  /// @retval false  the program ends with @a exit_code: help was asked for, or the line is wrong; both have been
  /// printed.
  bool parse(int argc, char* argv[], int& exit_code);
};
