#include "k8s/api/k8s_session_factory.h"

#include <cerrno>
#include <new>

#include "k8s/api/k8s_http_session.h"
#include "k8s/api/k8s_websocket_session.h"

namespace {

std::unique_ptr<K8S_Session> make_session(const std::string& type) {
  K8S_Session* session = nullptr;
  if (type == "http")
    session = new (std::nothrow) K8S_HTTP_Session;
  else if (type == "websocket")
    session = new (std::nothrow) K8S_WebSocket_Session;
  else
    return nullptr;
  if (session == nullptr) errno = ENOMEM;
  return std::unique_ptr<K8S_Session>(session);
}

}  // namespace

std::unique_ptr<K8S_Session> K8S_Session_Factory::create(const std::string& type) {
  std::unique_ptr<K8S_Session> session = make_session(type);
  if (!session) return nullptr;
  // Failures have been logged and show again at the first verb; a missing token is tried again when it is due.
  static_cast<void>(session->init());
  static_cast<void>(session->set_token());
  session->set_expire_time();
  return session;
}
