#pragma once

#include "http/json_http_session.h"

/**
 * A client of one host for single calls with JSON bodies. Nothing is repeated: one call is one request.
 *
 * Threads: belongs to one at a time.
 */
class TESSARIN_API JSON_RESTful_Client {
 public:
  /// @param ssl  TLS, with the checks of HTTP_Session_Factory::create. The two further arguments are reserved.
  JSON_RESTful_Client(const char* host, unsigned short port, bool ssl, bool, bool);
  virtual ~JSON_RESTful_Client() = default;

  /// As JSON_HTTP_Session::post.
  bool post(const char* path, const json_spirit::Value* body, HTTP_Response& response, json_spirit::Value* reply);

 protected:
  explicit JSON_RESTful_Client(HTTP_Session_var session) : session_(std::move(session), 0, 0) {}
  /// For what every request carries.
  virtual void prepare(HTTP_Request&) {}

 private:
  JSON_HTTP_Session session_;
};

/// Calls another agent. With TLS the agent has to prove itself as WebSocket_Options::identity() tells, and is shown the
/// token that stands there: unless told otherwise that of this pod's service account, as it is shown to the API server.
/// The token is read for each call.
class TESSARIN_API Common_JSON_RESTful_Client : public JSON_RESTful_Client {
 public:
  Common_JSON_RESTful_Client(const char* host, unsigned short port, bool ssl, bool, bool);

 protected:
  void prepare(HTTP_Request& request) override;

 private:
  const bool ssl_;
};
