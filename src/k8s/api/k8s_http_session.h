#pragma once

#include "http/http_request.h"
#include "http/http_response.h"
#include "http/json_http_session.h"
#include "k8s/api/k8s_session.h"

/**
 * REST over HTTPS. A verb is true if an exchange took place; response_status() tells its status until the next verb.
 * Replies to delete_(), post() and patch() are not read.
 *
 * Where init() failed, each verb fails with one line at LM_ERROR. How a broken connection is dealt with, and what of a
 * failed exchange is logged, is told at JSON_HTTP_Session.
 */
class K8S_HTTP_Session : public K8S_Session {
 public:
  K8S_HTTP_Session();

  /// @retval true   a JSON reply came, whatever its status; it stands in @a val.
  /// @retval false  none came; @a val is null.
  bool get(const std::string& url, json_spirit::Value& val) override;
  using K8S_Session::get;
  bool delete_(const std::string& url) override;
  bool post(const std::string& url, const json_spirit::Value& val) override;
  /// @param content_type  the kind of patch, such as "application/merge-patch+json".
  bool patch(const std::string& url, const json_spirit::Value& val, const char* content_type) override;
  int response_status() override;

  /// @retval false  the environment does not tell the server (see set_host_port()), or one line at LM_ERROR.
  bool init() override;
  void set_request_token() override;

 protected:
  JSON_HTTP_Session session_;
  HTTP_Response response_;
  HTTP_Request request_;

 private:
  bool start_request(const std::string& url);
};
