#include "k8s/api/k8s_client.h"

#include <iterator>
#include <sstream>
#include <utility>

#include "ace/Log_Msg.h"
#include "k8s/api/k8s_session_factory.h"
#include "kolt/check_macros.h"
#include "kolt/http_util.h"
#include "kolt/join_if2.h"

namespace {

/// "a%3D1,b%3D2". The equals sign is part of the parameter's value, so it stands encoded; nothing else is encoded.
std::string terms_text(const query_map_type& terms) {
  std::ostringstream text;
  join_if2(terms, text, ",", [](std::ostream& stream, const query_map_type::value_type& term) {
    stream << term.first << "%3D" << term.second;
    return true;
  });
  return text.str();
}

}  // namespace

K8S_Client::K8S_Client() : K8S_Client(K8S_Session_Factory::create("http")) {}

K8S_Client::K8S_Client(std::unique_ptr<K8S_Session> sess) : sess_(std::move(sess)) {
  KOLT_DO_IF_NULL(sess_, );
}

bool K8S_Client::get(const std::string& url, json_spirit::Value& val) {
  KOLT_RETURN_IF_NULL(sess_, false);
  return sess_->get(url, val) && val.type() == json_spirit::obj_type;
}

bool K8S_Client::list(const std::string& url, json_spirit::Value& val, const query_selectors& queries) {
  KOLT_RETURN_IF_NULL(sess_, false);
  return get(url + K8S_Client_Helper::gen_queries(queries), val);
}

bool K8S_Client::delete_(const std::string& url) {
  KOLT_RETURN_IF_NULL(sess_, false);
  return sess_->delete_(url);
}

bool K8S_Client::post(const std::string& url, const json_spirit::Value& req_body) {
  KOLT_RETURN_IF_NULL(sess_, false);
  return sess_->post(url, req_body);
}

bool K8S_Client::patch(const std::string& url, const json_spirit::Value& val, const char* content_type) {
  KOLT_RETURN_IF_NULL(sess_, false);
  return sess_->patch(url, val, content_type);
}

int K8S_Client::get_response_code() {
  KOLT_RETURN_IF_NULL(sess_, 0);
  return sess_->response_status();
}

std::string K8S_Client_Helper::gen_queries(const query_selectors& queries) {
  if (queries.empty()) return std::string();
  std::string text = "?";
  HTTP_Query_String_Builder_string builder(std::back_inserter(text), false);
  for (const Query_Selector& query : queries) {
    builder(query.type.c_str(), terms_text(query.value).c_str(), false, false, nullptr);
  }
  return text;
}
