#include "support/kube_sim/listing.h"

#include <algorithm>
#include <charconv>

#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "kolt/base64_decoder.h"
#include "kolt/base64_encoder.h"
#include "support/kube_sim/json_error.h"
#include "support/kube_sim/object_text.h"
#include "support/kube_sim/status_document.h"

namespace kube_sim {

using json_spirit::Object;
using json_spirit::Value;

namespace {

std::string parameter(const Request& request, const char* name) {
  const std::string* value = request.parameter(name);
  return value ? *value : std::string();
}

long number(const std::string& text) {
  if (text.empty()) return 0;
  long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size())
    throw bad_request("strconv.ParseInt: parsing " + quoted(text) + ": invalid syntax");
  return value;
}

/// Where a list goes on: behind the object `path` of the state `revision`.
struct Position {
  std::uint64_t revision = 0;
  std::string path;
};

std::string encode(const Position& position) {
  Object object;
  json_spirit::insert(object)("v", "meta.k8s.io/v1")("rv", position.revision)("start", position.path);
  std::string token = base64_encode(json_spirit::JSON_Dump(object, false).str());
  token.erase(token.find_last_not_of('=') + 1);
  std::replace(token.begin(), token.end(), '+', '-');
  std::replace(token.begin(), token.end(), '/', '_');
  return token;
}

Position decode(std::string token) {
  std::replace(token.begin(), token.end(), '-', '+');
  std::replace(token.begin(), token.end(), '_', '/');
  Base64_Decoder decoder;
  decoder.set(token.data(), static_cast<int>(token.size()));
  const std::string text(reinterpret_cast<const char*>(decoder.get()), decoder.length());
  Value value;
  if (!json_spirit::loads_json(std::string_view(text), value))
    throw bad_request("invalid continue token: continue key is not valid: " + json_error(text));
  Position position;
  json_spirit::pextract(value)("/rv", position.revision)("/start", position.path);
  return position;
}

Refusal too_large(long wanted, std::uint64_t current) {
  json_spirit::Array causes;
  causes << json_spirit::Object_Maker()("reason", "ResourceVersionTooLarge")("message", "Too large resource version");
  Refusal refusal{failure(
      504, "Timeout",
      "Timeout: Too large resource version: " + std::to_string(wanted) + ", current: " + std::to_string(current),
      json_spirit::Object_Maker()("causes", causes)("retryAfterSeconds", 1))};
  refusal.answer.headers.emplace_back("Retry-After", "1");
  return refusal;
}

Refusal expired() {
  return {failure(410, "Expired",
                  "The provided continue parameter is too old to display a consistent list result. You can start a "
                  "new list without the continue parameter.")};
}

std::string path_of(const Stored_Object_var& object) {
  return object->id.ns + "/" + object->id.name;
}

}  // namespace

Selection::Selection(const Request& request, const Resource& resource)
    : labels(parameter(request, "labelSelector")), fields(parameter(request, "fieldSelector"), resource) {}

Answer list_document(std::string text) {
  constexpr std::size_t first_piece = 2048;
  const bool chunked = text.size() > first_piece;
  return {.body = std::move(text), .chunked = chunked};
}

Answer list_answer(const Request& request, const Resource& resource, const std::string& ns,
                   const Object_Store::Transaction& store) {
  const Selection selection(request, resource);
  const std::string version = parameter(request, "resourceVersion"), token = parameter(request, "continue");
  std::size_t limit = static_cast<std::size_t>(std::max(0L, number(parameter(request, "limit"))));
  if (version == "0") limit = 0;  // answered from the cache, which knows no pages
  if (!token.empty() && !version.empty())
    throw bad_request("specifying resource version is not allowed when using continue");
  if (number(version) > static_cast<long>(store.revision())) throw too_large(number(version), store.revision());

  List_Head head{.revision = store.revision()};
  Position position;
  std::vector<Stored_Object_var> all;
  if (token.empty()) {
    all = store.list(resource.group, resource.plural, ns);
  } else {
    position = decode(token);
    head.revision = position.revision;
    if (!store.list_at(position.revision, resource.group, resource.plural, ns, all)) throw expired();
  }
  std::vector<Stored_Object_var> items;
  for (auto& object : all)
    if ((token.empty() || path_of(object) > position.path) && (selection.empty() || selection.matches(object->value)))
      items.push_back(std::move(object));
  if (limit && items.size() > limit) {
    head.continue_token = encode({head.revision, path_of(items[limit - 1])});
    if (selection.empty()) head.remaining = static_cast<long>(items.size() - limit);
    items.resize(limit);
  }
  return list_document(list_text(resource, head, items));
}

}  // namespace kube_sim
