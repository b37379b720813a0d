#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/kube_sim/answer.h"
#include "support/kube_sim/api.h"
#include "support/kube_sim/certificates.h"
#include "support/kube_sim/request.h"

namespace kube_sim {

/// Which requests a fault hits.
struct Match {
  /// Empty: any.
  std::string method = "";
  /// A regular expression that has to match the decoded path as a whole. Empty: any.
  std::string path = "";
  /// The first request hit, counted from 1 among those that match after `Front::fail` was called.
  int nth = 1;
  /// How many are hit from there on; 0: all.
  int count = 1;
};

/// What goes wrong. The delay comes first and may be all; of the others give one.
struct Fault {
  /// Before anything is answered. A front that is destroyed meanwhile does not wait for the end of it.
  std::chrono::milliseconds delay{0};
  /// Sent in place of the API's answer; the API is not asked.
  std::optional<Answer> answer = std::nullopt;

  /// How the connection ends in mid-answer. The API has been asked, so that the request may have changed the cluster.
  enum class End {
    NONE,
    DROP_BEFORE_HEAD,  ///< closed with nothing sent
    DROP_IN_HEAD,      ///< closed behind the first half of the head
    CUT_BODY,          ///< closed behind `body_bytes` bytes of the body; the head tells the whole length, or chunks
    RESET,             ///< as DROP_BEFORE_HEAD, but by a TCP reset
  };
  End end = End::NONE;
  size_t body_bytes = 0;
};

struct Front_Options {
  std::string address = "127.0.0.1";
  /// 0: any free one.
  unsigned short port = 0;
  Certificate_Kind certificate = Certificate_Kind::GOOD;
  /// Null: the front makes its own. Must outlive the front.
  const Certificates* certificates = nullptr;
  /// Larger bodies are refused with 413, as real servers do.
  size_t body_limit = 3 * 1024 * 1024;
  /// Whether `requests` has something to tell.
  bool record = true;
  /// Larger heads are refused with 431. Commands of exec travel there.
  size_t head_limit = 1024 * 1024;
};

/**
 * The server of an `Api`: TLS, HTTP/1.1 with kept connections, WebSocket upgrades, and faults by script.
 *
 * Starts in the constructor, which throws std::runtime_error when the port cannot be had; stops in the destructor,
 * which ends connections wherever they are and waits for their threads, but never for a peer. Each connection has a
 * thread. A method may be called from any thread.
 */
class Front {
 public:
  explicit Front(Api& api, const Front_Options& options = {});
  ~Front();
  Front(const Front&) = delete;
  Front& operator=(const Front&) = delete;

  unsigned short port() const;
  /// "https://127.0.0.1:port", "https://[::1]:port"
  std::string url() const;
  /// The CA certificate, PEM, that clients are to know; it vouches for the server where `certificate` is GOOD.
  const std::string& ca() const;

  /// All requests in the order in which they were read, upgrades and those hit by a fault included.
  std::vector<Request> requests() const;
  void clear_requests();
  /// TLS connections whose handshake succeeded.
  size_t connections() const;
  /// Those among them that still last.
  size_t open_connections() const;

  /// Adds a fault. Of several that hit a request, the one added first counts.
  void fail(const Match& match, const Fault& fault);
  void clear_faults();
  /// How often faults have hit.
  size_t faults_hit() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kube_sim
