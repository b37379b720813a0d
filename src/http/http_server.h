#pragma once

#include <memory>
#include <string>

#include "http/access_check.h"
#include "http/http_page.h"
#include "http/http_server_options.h"
#include "http/http_service.h"
#include "kolt/export.h"

/**
 * Serves one path over HTTP/1.1 (POST) and WebSocket, on a unix socket, on addresses, or both; beside it any number of
 * pages, which are read with GET.
 *
 * Who connects to the unix socket has been let in by its file mode, 0600; who connects by TCP shows a bearer token with
 * each request, which is looked at before anything else of it. Addresses other than loopback need TLS.
 *
 * When all places are taken, the connection that has waited longest for a request gives its place to the new one.
 *
 * Life: any number of add_page() and listen_*(), start(), close(); the destructor closes. The service outlives the
 * server. Threads: the operations are called by one thread; the service is called by the server's own.
 */
class TESSARIN_API HTTP_Server {
 public:
  HTTP_Server(HTTP_Service& service, const HTTP_Server_Options& options);
  ~HTTP_Server();
  HTTP_Server(const HTTP_Server&) = delete;
  HTTP_Server& operator=(const HTTP_Server&) = delete;

  /// Serves @a page at @a path, in place of what stood there. Before start().
  /// @param path  begins with '/', and is not the service's.
  void add_page(const std::string& path, HTTP_Page page);

  /// Makes the socket and its file, in place of a socket that stands there; close() removes it.
  /// @retval -1  one line at LM_ERROR; errno tells why.
  int listen_unix(const std::string& path);

  /// @param address  numeric.   @param port  0 takes a free one.   @param access  asked for each request; not null.
  /// @retval -1  one line at LM_ERROR; errno tells why (EACCES: no loopback address).
  int listen_tcp(const std::string& address, unsigned short port, std::shared_ptr<Access_Check> access);
  /// As above, with one token that callers show; not empty.
  int listen_tcp(const std::string& address, unsigned short port, const std::string& token);

  /// As listen_tcp(), by TLS 1.2 or 1.3 and on any address. The files are looked at for each connection: a new pair is
  /// taken for new connections, one with a fault leaves the old one in place, with one line at LM_ERROR.
  int listen_tls(const std::string& address, unsigned short port, const TLS_Files& files,
                 std::shared_ptr<Access_Check> access);

  /// The port of the last listen_tcp() or listen_tls(), 0 without one.
  unsigned short port() const;

  /// Starts to serve. @retval -1  a thread cannot be started; one line at LM_ERROR.
  int start();

  /// Stops to listen, ends all connections, joins the threads. When it returns, the service is not called any more.
  /// Harmless when closed.
  void close();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};
