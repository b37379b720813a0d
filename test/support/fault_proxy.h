#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "support/socket_server.h"

namespace test_support {

/// What becomes of one request on its way.
enum class Network_Fault {
  NONE,
  RESET_IN_REQUEST,  ///< the connection is reset in the middle of the request's body
  LOSE_ANSWER,       ///< the server gets the whole request, its answer is thrown away and the connection reset
  RESET_IN_ANSWER,   ///< reset behind the first half of the answer's bytes
  CUT_ANSWER,        ///< closed in good order behind the first half of the answer's bytes
  CUT_HEAD,          ///< closed in the middle of the answer's head
  WRONG_LENGTH,      ///< the answer's Content-Length says more than there is
  ANSWER_500,
  ANSWER_503,  ///< with "Retry-After: 1"
  ANSWER_429,  ///< with "Retry-After: 1"
  SLOW,        ///< the answer's body comes a byte a second
  SILENCE,     ///< no answer, until the proxy ends
};

/// A proxy before an HTTP server on this machine, which fails as it is told. Connections are kept after an
/// answer that was passed on whole.
class Fault_Proxy {
 public:
  /// Asked for each request, with its first line; several at once.
  typedef std::function<Network_Fault(const std::string& first_line)> Plan;

  Fault_Proxy(int upstream_port, Plan plan);
  ~Fault_Proxy() { ended_ = true; }

  int port() const { return server_.port(); }
  void refuse(bool refuse) { server_.refuse(refuse); }
  int requests() const { return requests_; }

 private:
  void serve(int fd);
  bool serve_one(int fd);
  std::string forward(const Wire_Message& request) const;
  void answer(int fd, Network_Fault fault, const std::string& answer) const;

  const int upstream_port_;
  const Plan plan_;
  std::atomic<int> requests_{0};
  std::atomic<bool> ended_{false};
  Socket_Server server_;
};

}  // namespace test_support
