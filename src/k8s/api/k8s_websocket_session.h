#pragma once

#include <memory>

#include "http/websocket_connection.h"
#include "k8s/api/k8s_session.h"

/**
 * One exec request over a WebSocket, in the sub-protocol "v4.channel.k8s.io". One session makes one exchange, and
 * blocks until the command has ended. Nothing is retried.
 */
class K8S_WebSocket_Session : public K8S_Session {
 public:
  ~K8S_WebSocket_Session() override;

  using K8S_Session::get;
  /**
   * Runs the command and collects its output.
   *
   * @param url      path and query of the exec request, encoded.
   * @param body     the output, standard output and standard error in the order in which they came, is put behind what
   *                 it holds.
   * @param timeout  for each frame, not for the whole run; null: none.
   * @retval true    the command has ended with exit code 0.
   * @retval false   it did not, or its end is not known: one line at LM_ERROR or LM_EMERGENCY. @a body keeps what had
   *                 come, the status document, if there was one, included.
   */
  bool get(const std::string& url, std::string& body, const ACE_Time_Value* timeout) override;
  /// 0 after a get() that was true, else -1.
  int response_status() override;

  /// @retval false  the environment does not tell the server (see set_host_port()), or there is no connection object:
  ///                one line at LM_EMERGENCY.
  bool init() override;
  void set_request_token() override;

 protected:
  /// Opens the exchange, for a session that reads its frames in a way of its own; reset_request() comes before.
  /// @retval false  one line at LM_ERROR.
  bool connect(const std::string& url);

  std::unique_ptr<WebSocket_Connection> endpoint_;
  bool resp_status_ok_ = false;

 private:
  bool read_frames(std::string& body, size_t& last, const ACE_Time_Value* timeout);
};
