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
  /// For what every request carries.
  virtual void prepare(HTTP_Request&) {}

 private:
  JSON_HTTP_Session session_;
};

/// Calls another agent: with TLS it shows the token of this pod's service account, as it does to the API server.
class TESSARIN_API Common_JSON_RESTful_Client : public JSON_RESTful_Client {
 public:
  Common_JSON_RESTful_Client(const char* host, unsigned short port, bool ssl, bool, bool);

 protected:
  void prepare(HTTP_Request& request) override;

 private:
  const bool ssl_;
};
