#pragma once

#include <memory>
#include <string>

#include "http/http_session.h"

/// Where a session's connections go, and its limits, in seconds.
struct HTTP_Target {
  /// As in a URL: an IPv6 address has brackets.
  std::string host;
  unsigned short port;
  bool ssl;
  /// Empty: any.
  std::string local_address;
  int idle_connections;
  int send_timeout;
  int recv_timeout;
  int conn_timeout;
  /// What the certificate has to name, as in a URL; empty: the host.
  std::string name = {};
  /// PEM file of those who may sign it; empty: those that trusted_issuers_file() tells.
  std::string ca_file = {};
};

/// The session on libcurl. One handle for its whole life, which keeps the connections.
class Curl_Session : public HTTP_Session {
 public:
  /// Logs and gives null if libcurl can't be had.
  static std::unique_ptr<Curl_Session> create(const HTTP_Target& target);

  HTTP_Exchange_Result exchange(const HTTP_Request& request, const std::string* body, HTTP_Response& response,
                                HTTP_Body_Sink& sink) override;

 private:
  struct Handle_Deleter {
    void operator()(void* handle) const;
  };
  typedef std::unique_ptr<void, Handle_Deleter> Handle;

  Curl_Session(Handle handle, const HTTP_Target& target);

  template <typename Argument>
  void set(int option, Argument value);
  void set_connection();
  void set_trust();
  void set_request(const HTTP_Request& request, const std::string* body);

  const Handle handle_;
  const HTTP_Target target_;
  const std::string url_;
};
