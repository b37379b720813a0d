#include "http/json_restful_client.h"

#include <fstream>
#include <string>

#include "http/http_session_factory.h"
#include "http/websocket_options.h"

namespace {

constexpr char service_account_token[] = "/var/run/secrets/kubernetes.io/serviceaccount/token";

HTTP_Session_var session_with(const char* host, unsigned short port, bool ssl) {
  return HTTP_Session_Factory::create(host ? host : "", port, ssl, nullptr, DEFAULT_IDLE_CONNECTIONS, nullptr, false,
                                      DEFAULT_SOCKET_SEND_TIMEOUT, DEFAULT_SOCKET_RECV_TIMEOUT,
                                      DEFAULT_SOCKET_CONN_TIMEOUT, 0);
}

HTTP_Session_var session_with_agent(const char* host, unsigned short port, bool ssl) {
  if (!ssl) return session_with(host, port, false);
  const auto identity = WebSocket_Options::instance()->identity();
  return HTTP_Session_Factory::create_to_agent(host ? host : "", port, identity.name, identity.ca_file);
}

}  // namespace

JSON_RESTful_Client::JSON_RESTful_Client(const char* host, unsigned short port, bool ssl, bool, bool)
    : session_(session_with(host, port, ssl), 0, 0) {}

bool JSON_RESTful_Client::post(const char* path, const json_spirit::Value* body, HTTP_Response& response,
                               json_spirit::Value* reply) {
  HTTP_Request request(HTTP_METHOD_POST, path, true);
  prepare(request);
  return session_.post(request, body, response, reply);
}

Common_JSON_RESTful_Client::Common_JSON_RESTful_Client(const char* host, unsigned short port, bool ssl, bool, bool)
    : JSON_RESTful_Client(session_with_agent(host, port, ssl)), ssl_(ssl) {}

/// Without TLS anybody could read the token.
void Common_JSON_RESTful_Client::prepare(HTTP_Request& request) {
  if (!ssl_) return;
  const std::string other = WebSocket_Options::instance()->identity().token_file;
  std::ifstream file(other.empty() ? service_account_token : other);
  std::string token;
  if (!std::getline(file, token)) return;
  if (token.ends_with('\r')) token.pop_back();
  request.headers().put(HTTP_HEAD_AUTHORIZATION, ("Bearer " + token).c_str(), true);
}
