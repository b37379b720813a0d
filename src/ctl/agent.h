#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "json_spirit/json_spirit_value.h"

namespace ctl {

/// How caller and agent know each other over TCP. All may be empty.
struct Agent_Trust {
  std::string token_file;  ///< whose first line is the bearer token; empty: none is sent
  std::string ca_file;     ///< PEM: who signs the agent's certificate; empty: the system's store
  std::string name;        ///< what that has to name; empty: the host of the URL
};

/// The agent, called by JSON-RPC 2.0 over HTTP. One thread at a time.
class Agent {
 public:
  /**
   * @param url       "unix:///path/of/socket", "http://host:port" or "https://host:port".
   * @throws Failure  exit_usage: the URL has another form, the token file cannot be read, or a token would go over
   * plain HTTP to another machine.
   */
  Agent(const std::string& url, const Agent_Trust& trust);
  Agent(const std::string& url, const std::string& token_file) : Agent(url, Agent_Trust{token_file, "", ""}) {}
  ~Agent();

  /**
   * Calls a method and returns its result.
   *
   * @param timeout   longest wait for the answer; 0: none.
   * @throws Failure  exit_unreachable: no connection, no answer in time, or none that is JSON-RPC; exit_refused: an
   * error answer, or the caller has no right to call.
   */
  json_spirit::Value call(const std::string& method, const json_spirit::Object& params,
                          std::chrono::seconds timeout = std::chrono::seconds(60));

  /// A page of the agent as it stands there.
  struct Page {
    long status = 0;
    std::string type;
    std::string body;
  };

  /**
   * Reads a page with GET.
   *
   * @param path      begins with '/'.
   * @throws Failure  exit_unreachable: no connection, or no answer within 60 seconds.
   */
  Page get(const std::string& path);

 private:
  class Http;

  void check_status(long status) const;

  const std::string url_;
  const bool with_token_;
  const std::unique_ptr<Http> http_;
  int last_id_ = 0;
};

}  // namespace ctl
