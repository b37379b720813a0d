#include "support/kube_sim/test/recorded_exchange.h"

#include <algorithm>
#include <filesystem>

#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "support/kube_sim/cluster.h"

namespace kube_sim {

using json_spirit::Object;
using json_spirit::Value;

namespace {

const std::string folder = TEST_DATA_DIR "/kube-api/";

Recorded_Exchange read(const Object& recorded) {
  Recorded_Exchange exchange;
  const Value* body = nullptr;
  std::string target;
  const Object* headers = nullptr;
  json_spirit::pextract(recorded)("/name", exchange.name)("/note", exchange.note)(
      "/request/method", exchange.request.method)("/request/path", target)("/request/body", body)(
      "/request/body_text", exchange.request.body)("/request/headers", headers)("/response/status", exchange.status)(
      "/response/headers", exchange.headers)("/response/body", exchange.body)(
      "/response/body_text", exchange.body_text)("/response/body_lines", exchange.lines)(
      "/request/version", exchange.version)("/end", exchange.end);
  set_target(exchange.request, target);
  if (body) exchange.request.body = json_spirit::JSON_Dump(*body, false).str();
  if (headers)
    for (const auto& [name, value] : *headers | json_spirit::get_str) exchange.request.headers[name] = value;
  return exchange;
}

}  // namespace

std::vector<std::string> recorded_groups() {
  std::vector<std::string> groups;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string name = entry.path().stem();
    if (entry.path().extension() == ".json" && !name.starts_with("exec-") && !name.starts_with("http-") &&
        name != "left-out" && name != "controllers")
      groups.push_back(name);
  }
  std::sort(groups.begin(), groups.end());
  return groups;
}

std::vector<Recorded_Exchange> recorded_exchanges(const std::string& group) {
  std::vector<Recorded_Exchange> exchanges;
  const Value document = recorded_document(group + ".json");
  if (document.type() != json_spirit::array_type) return exchanges;
  for (const Object& recorded : document.get_array() | json_spirit::get_obj) exchanges.push_back(read(recorded));
  return exchanges;
}

bool authorize(Request& request, const std::string& note) {
  const auto says = [&](const char* text) { return note.find(text) != std::string::npos; };
  if (says("without an Authorization header")) return true;
  if (says("token of the service account")) return false;
  std::string token = Cluster_Options().token;
  if (says("lab-nobody")) token = nobody_token;
  if (says("does not know") || says("of the form")) token = "aaa.bbb.ccc";
  if (says("and nothing behind it")) token.clear();
  request.headers["authorization"] = "Bearer " + token;
  return true;
}

Value recorded_document(const std::string& file) {
  Value document;
  json_spirit::load_json((folder + file).c_str(), document, json_spirit::LOAD_STRICT);
  return document;
}

}  // namespace kube_sim
