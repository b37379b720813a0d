#pragma once

#include <memory>
#include <string>

#include "json_spirit/json_spirit_value.h"
#include "k8s/api/k8s_def.h"
#include "k8s/api/k8s_session.h"

/**
 * The way of all resources to the API server: a session, and two rules on top of it. What is read must be a JSON
 * object, and a list may carry selectors. Nothing is retried, and no verb looks at a status.
 *
 * Without a session each verb fails and logs one line at LM_EMERGENCY.
 *
 * Ownership: the session is the client's own; the client is shared by all resources of a run, as K8S_Client_var, made
 * by make_shared_nothrow<K8S_Client>(). Threads: one at a time; concurrent work makes clients of its own.
 */
class K8S_Client {
 public:
  /// With a session over HTTP. Whether there is one shows at the first verb.
  K8S_Client();
  /// With the caller's session; null is logged at LM_EMERGENCY.
  explicit K8S_Client(std::unique_ptr<K8S_Session> sess);

  /// @param url  path and query; sent as it is.
  /// @param val  the reply's document.
  /// @retval false  there was no exchange, or the reply is no JSON object; @a val holds whatever was read.
  bool get(const std::string& url, json_spirit::Value& val);
  /// get() of @a url with the selectors as its query; @a url has none of its own.
  bool list(const std::string& url, json_spirit::Value& val, const query_selectors& queries);

  /// @retval true  an exchange took place, whatever its status: get_response_code() tells it.
  bool delete_(const std::string& url);
  bool post(const std::string& url, const json_spirit::Value& req_body);
  bool patch(const std::string& url, const json_spirit::Value& val, const char* content_type);

  /// The HTTP status of the last exchange. @retval 0 there was none, or there is no session.
  int get_response_code();

 private:
  std::unique_ptr<K8S_Session> sess_;
};

typedef std::shared_ptr<K8S_Client> K8S_Client_var;

class K8S_Client_Helper {
 public:
  /// The query string, "?" included: "?labelSelector=a%3D1,b%3D2&...". Empty without selectors. Names, keys and values
  /// are not encoded: they are texts that are safe in a label.
  static std::string gen_queries(const query_selectors& queries);
};
