#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "client_io/s3_signer.h"
#include "http/http_headers.h"

namespace client_io {

/// One request as it goes to libcurl. What it points to outlives the exchange.
struct S3_Exchange {
  std::string method;
  std::string url;
  const S3_Headers* headers = nullptr;
  std::string_view body;
  char* to = nullptr;  ///< where the body of a 2xx answer goes; null: into S3_Answer::text
  size_t to_size = 0;
  std::function<bool()> stopped;  ///< asked ten times a second; true breaks it off
};

/// How far an exchange came.
enum class S3_Outcome {
  ANSWERED,  ///< a whole answer, whatever its status
  BROKEN,    ///< no connection, or lost, or silent for too long: another try may do better
  REFUSED,   ///< the server did not prove who it is, or sent more than there is room for, or no own address
  STOPPED,   ///< by S3_Exchange::stopped
};

struct S3_Answer {
  int status = 0;
  HTTP_Headers headers;
  std::string text;
  size_t received = 0;  ///< bytes at S3_Exchange::to
  int error = 0;        ///< unless ANSWERED: an errno
  std::string reason;   ///< unless ANSWERED: for the log
};

/**
 * Sends requests over connections that are kept. Verifies the server, follows no redirect, logs nothing. A proxy is
 * used where the environment names one. Threads: any; each exchange has a connection for itself.
 */
class S3_Transport {
 public:
  struct Options {
    std::string ca_file;              ///< empty: the system's store
    std::string source_address;       ///< empty: any
    int silence_timeout_seconds = 0;  ///< without progress; 0 or less: none
  };

  explicit S3_Transport(Options options);
  ~S3_Transport();

  S3_Outcome exchange(const S3_Exchange& request, S3_Answer& answer);

 private:
  struct Line;
  std::unique_ptr<Line> take();
  void give_back(std::unique_ptr<Line> line);

  const Options options_;
  std::mutex lock_;
  std::vector<std::unique_ptr<Line>> idle_;  // guarded by lock_
};

}  // namespace client_io
