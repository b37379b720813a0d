#include "k8s/api/k8s_token_review.h"

#include <algorithm>

#include "ace/Log_Msg.h"
#include "http/http_session_factory.h"
#include "json_spirit/assign.h"
#include "json_spirit/extract.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

constexpr char url[] = "/apis/authentication.k8s.io/v1/tokenreviews";
constexpr int created = 201;
constexpr int timeout_sec = 5;
constexpr int retries = 1;
constexpr int retry_timeout_sec = 2;

}  // namespace

K8S_Token_Review::K8S_Token_Review(const std::vector<std::string>& audiences)
    : audiences_(audiences),
      session_(HTTP_Session_var(), retries, retry_timeout_sec),
      request_(HTTP_METHOD_POST, url, true) {}

bool K8S_Token_Review::init() {
  if (!set_host_port()) return false;
  session_.reset(HTTP_Session_Factory::create(host_, port_, true, nullptr, 1, nullptr, false, timeout_sec, timeout_sec,
                                              timeout_sec, 0));
  return static_cast<bool>(session_);
}

void K8S_Token_Review::set_request_token() {
  request_.reset();
  request_.uri(url, true);
  request_.headers().put("Authorization", token_.c_str(), true);
}

K8S_Token_Review::Verdict K8S_Token_Review::review(const std::string& token, std::string& user) {
  reset_request();
  Object spec = Object_Maker()("token", token).get_obj();
  if (!audiences_.empty()) spec["audiences"] = Array(audiences_.begin(), audiences_.end());
  const Value question = Object_Maker()("apiVersion", "authentication.k8s.io/v1")("kind", "TokenReview")("spec", spec);
  Value answer;
  if (!session_.post(request_, &question, response_, &answer)) return Verdict::UNKNOWN;
  if (response_.status() == created && answer.type() == json_spirit::obj_type) return verdict_of(answer, user);
  ACE_ERROR((LM_ERROR, ACE_TEXT("The API server did not review a token: status %d.\n"), response_.status()));
  return Verdict::UNKNOWN;
}

// A server that does not know audiences names none: then the token is one for the API server.
K8S_Token_Review::Verdict K8S_Token_Review::verdict_of(Value& answer, std::string& user) const {
  bool accepted = false;
  std::string* name = nullptr;
  Array* meant_for = nullptr;
  json_spirit::pextract(answer)("/status/authenticated", accepted)("/status/user/username", name);
  json_spirit::pextract(answer)("/status/audiences", meant_for);
  if (!accepted || !name || name->empty()) return Verdict::REFUSED;
  const auto is_wanted = [this](const Value& audience) {
    return audience.type() == json_spirit::str_type &&
           std::find(audiences_.begin(), audiences_.end(), audience.get_str()) != audiences_.end();
  };
  const bool fits = audiences_.empty() || (meant_for && std::any_of(meant_for->begin(), meant_for->end(), is_wanted));
  if (!fits) return Verdict::REFUSED;
  user = std::move(*name);
  return Verdict::ACCEPTED;
}
