#include <openssl/x509v3.h>

#include <boost/asio/ip/address.hpp>

#include "http/trusted_issuers.h"
#include "http/websocket_client.h"

namespace websocket_client {

net::ssl::context tls_context(error_code& error) {
  net::ssl::context context(net::ssl::context::tls_client);
  ::SSL_CTX_set_min_proto_version(context.native_handle(), TLS1_2_VERSION);
  context.set_verify_mode(net::ssl::verify_peer, error);
  if (error) return context;
  if (const char* issuers = trusted_issuers_file())
    context.load_verify_file(issuers, error);
  else
    context.set_default_verify_paths(error);
  return context;
}

std::string bare_host(const std::string& host) {
  return host.starts_with('[') && host.ends_with(']') ? host.substr(1, host.size() - 2) : host;
}

void expect_name(SSL* ssl, const std::string& host) {
  const std::string name = bare_host(host);
  error_code no_address;
  net::ip::make_address(name, no_address);
  if (no_address) {
    ::SSL_set_tlsext_host_name(ssl, name.c_str());
    ::X509_VERIFY_PARAM_set1_host(::SSL_get0_param(ssl), name.c_str(), name.size());
  } else {
    ::X509_VERIFY_PARAM_set1_ip_asc(::SSL_get0_param(ssl), name.c_str());
  }
}

std::string tls_reason(SSL* ssl, const error_code& error) {
  const long verdict = ::SSL_get_verify_result(ssl);
  return verdict == X509_V_OK ? error.message() : ::X509_verify_cert_error_string(verdict);
}

}  // namespace websocket_client
