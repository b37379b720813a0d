#include "k8s/api/k8s_resource.h"

#include <typeinfo>

#include "json_spirit/log_with_dump.h"
#include "kolt/check_macros.h"
#include "kolt/path.h"
#include "kolt/retry_macros.h"

using json_spirit::JSON_Dump;
using json_spirit::Value;

namespace {

constexpr int ok = 200;
constexpr int created = 201;
constexpr int not_found = 404;

/// Whether @a name, put behind the URL of a collection, leads to something in it: not to the collection itself, which
/// a DELETE would empty, and not out of it.
bool leads_to_object(const std::string& name) {
  const std::string last = kolt::basename(name.substr(0, name.find_first_of("?#")), '/');
  return !last.empty() && last != "." && last != "..";
}

}  // namespace

K8S_Resource::K8S_Resource(K8S_Client_var client, std::string url, std::string all_url)
    : client_(std::move(client)), url_(std::move(url)), all_url_(std::move(all_url)) {}

K8S_Resource::~K8S_Resource() = default;

const char* K8S_Resource::type_name() const {
  const char* name = typeid(*this).name();
  return *name == '*' ? name + 1 : name;
}

bool K8S_Resource::get(const std::string& name, Value& val, bool logging) {
  KOLT_RETURN_IF_NULL(client_, false);
  const bool got = client_->get(kolt::Path(url_, name, '/', false).str(), val);
  if (got && client_->get_response_code() == ok) return true;
  if (logging)
    log_with_dump(LM_ERROR, "Failed to get type %s name %s info\n%s\n type %d status %d\n", type_name(), name.c_str(),
                  JSON_Dump(val, true), val.type(), client_->get_response_code());
  return false;
}

bool K8S_Resource::list(Value& val, const query_selectors& queries) {
  KOLT_RETURN_IF_NULL(client_, false);
  return list_url(url_, val, queries);
}

bool K8S_Resource::list_all(Value& val, const query_selectors& queries) {
  KOLT_RETURN_IF_NULL(client_, false);
  if (all_url_.empty()) {
    ACE_ERROR((LM_EMERGENCY, ACE_TEXT("Unexpected error in %N:%l, all_url_ is empty:\n%?\n")));
    return false;
  }
  return list_url(all_url_, val, queries);
}

bool K8S_Resource::list_url(const std::string& url, Value& val, const query_selectors& queries) {
  const bool listed = client_->list(url, val, queries);
  if (listed && client_->get_response_code() == ok) return true;
  log_with_dump(LM_ERROR, "Failed to list type %s value\n%s\n type %d status %d\n", type_name(), JSON_Dump(val, true),
                val.type(), client_->get_response_code());
  return false;
}

bool K8S_Resource::post(const Value& val) {
  KOLT_RETURN_IF_NULL(client_, false);
  const bool posted = client_->post(url_, val);
  if (posted && client_->get_response_code() == created) return true;
  log_with_dump(LM_ERROR, "Failed to create type %s info\n%s\n type %d status %d\n", type_name(), JSON_Dump(val, true),
                val.type(), client_->get_response_code());
  return false;
}

bool K8S_Resource::delete_(const std::string& name, bool logging, int retry_times) {
  KOLT_RETURN_IF_NULL(client_, false);
  KOLT_RETURN_IF_EMPTY(name, false);
  KOLT_RETURN_IF_NOT(leads_to_object(name), name, "the name of an object", false);

  const std::string url_path = kolt::Path(url_, name, '/', false).str();
  Value val;
  if (!client_->get(url_path, val) || client_->get_response_code() == not_found) return true;

  // The DELETE is judged by the probe before it; a refused one shows when the wait ends.
  const int code = client_->get_response_code();
  if (!client_->delete_(url_path) || (code != ok && code != not_found)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to delete type %s name %s status %d\n"), type_name(), name.c_str(),
               client_->get_response_code()));
    return false;
  }
  return wait_until_gone(name, url_path, logging, retry_times);
}

bool K8S_Resource::wait_until_gone(const std::string& name, const std::string& url, bool logging, int retry_times) {
  Value val;
  bool gone = false;
  QVX_RETRY(
      retry_times, K8S_QVX_RETRY_TIMEOUT,
      {
        if (!client_->get(url, val)) return false;
        gone = client_->get_response_code() == not_found;
      },
      gone,
      {
        if (logging)
          ACE_ERROR((LM_ERROR, ACE_TEXT("Type %s name %s exists after delete\n"), type_name(), name.c_str()));
        return false;
      });
  return true;
}

K8S_General_Resource::K8S_General_Resource(K8S_Client_var client, std::string url)
    : K8S_Resource(std::move(client), std::move(url), "") {}
