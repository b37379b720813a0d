#include "k8s/api/k8s_events.h"

#include "ace/Log_Msg.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "kolt/string_sprintf.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

K8S_Events::K8S_Events(K8S_Client_var client, const std::string& ns)
    : K8S_Resource(std::move(client), string_sprintf("/api/v1/namespaces/%s/events", ns.c_str()), "") {}

K8S_Events::~K8S_Events() = default;

void K8S_Events::show(const std::string& name, const std::string& kind) {
  // The query stands where a name would; the server takes a slash before the question mark.
  const std::string query =
      string_sprintf("?fieldSelector=involvedObject.name=%s,involvedObject.kind=%s", name.c_str(), kind.c_str());
  Value val;
  if (!get(query, val, true)) return;
  const Array* items = json_spirit::object_get_array(std::as_const(val).get_obj(), "items");
  if (!items) return;
  for (const Object& event : *items | json_spirit::get_obj) {
    const std::string* message = json_spirit::object_get_str(event, "message");
    if (message && !message->empty()) ACE_ERROR((LM_ERROR, ACE_TEXT("%s\n"), message->c_str()));
  }
}
