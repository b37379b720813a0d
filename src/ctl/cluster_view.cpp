#include "ctl/cluster_view.h"

#include <cstdlib>
#include <memory>
#include <utility>

#include "ctl/failure.h"
#include "ctl/service_account.h"
#include "http/websocket_options.h"
#include "json_spirit/extract.h"
#include "kolt/get_env_r.h"

namespace ctl {

using json_spirit::Array;
using json_spirit::Value;

namespace {

constexpr int first_error_status = 400;

/// What a status means to a person.
const char* meaning_of(int status) {
  switch (status) {
    case 401:
      return " (the token is not taken)";
    case 403:
      return " (not allowed)";
    case 404:
      return " (not found)";
    case 409:
      return " (there already)";
    default:
      return "";
  }
}

/// Where a CA for the agents' certificates is given they are called by TLS, with the service account's token.
void set_peers() {
  const std::string ca = get_env_r("TESSARIN_CA");
  WebSocket_Options::instance()->ssl(!ca.empty());
  WebSocket_Options::instance()->set_identity({ca, get_env_r("TESSARIN_AGENT_NAME"), ""});
}

}  // namespace

Cluster_View::Cluster_View(const Cluster_Options& options) {
  if (!options.server.empty())
    assume_service_account(options.server, options.token_file, options.ca_file);
  else if (std::getenv("KUBERNETES_SERVICE_HOST") == nullptr)
    throw Failure(exit_usage, "This is no pod of a cluster: give --server, --token-file and --ca.");
  set_peers();
  client_ = std::make_shared<K8S_Client>();
  // False also without the environment of the auxiliary agents, which most commands do without.
  if (cluster().init() || !cluster().get_k8s_version().empty()) return;
  Value ignored;
  static_cast<void>(client_->get("/version", ignored));
  fail("The API server does not tell its version");
}

bool Cluster_View::knows_agents() const {
  return !cluster().get_aux_key().empty() && !cluster().get_aux_value().empty() && !cluster().get_current_ns().empty();
}

Array Cluster_View::items_of(K8S_Resource& resource, const std::string& what, const query_selectors& queries) {
  Value list;
  if (!resource.list(list, queries)) fail("The " + what + " cannot be listed");
  Array* const items = json_spirit::object_get_array(list.get_obj(), "items");
  return items ? std::move(*items) : Array();
}

void Cluster_View::fail(const std::string& text) const {
  const int status = client_->get_response_code();
  if (status <= 0) throw Failure(exit_unreachable, text + ": no answer. --verbose tells why.");
  if (status < first_error_status) throw Failure(exit_refused, text + ". --verbose tells why.");
  throw Failure(exit_refused, text + ": the server answered " + std::to_string(status) + meaning_of(status) + ".");
}

std::string text_at(const Value& document, const char* path) {
  const std::string* text = nullptr;
  json_spirit::pextract(document)(path, text);
  return text ? *text : "";
}

}  // namespace ctl
