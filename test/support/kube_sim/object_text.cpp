#include "support/kube_sim/object_text.h"

namespace kube_sim {

namespace {

std::string kind_text(const Resource& resource, const std::string& suffix = {}) {
  return "\"kind\":\"" + resource.kind + suffix + "\",\"apiVersion\":\"" + resource.api_version() + "\",";
}

std::string head_text(const Resource& resource, const List_Head& head) {
  std::string text = "\"metadata\":{\"resourceVersion\":\"" + std::to_string(head.revision) + "\"";
  if (!head.continue_token.empty() || resource.custom) text += ",\"continue\":\"" + head.continue_token + "\"";
  if (head.remaining >= 0) text += ",\"remainingItemCount\":" + std::to_string(head.remaining);
  return text + "},";
}

}  // namespace

std::string object_text(const Resource& resource, const std::string& members) {
  return "{" + kind_text(resource) + members + "}\n";
}

std::string list_text(const Resource& resource, const List_Head& head, const std::vector<Stored_Object_var>& items) {
  const std::string prefix = resource.custom ? "{" + kind_text(resource) : "{";
  std::size_t size = 256;
  for (const auto& item : items) size += prefix.size() + item->members.size() + 2;
  std::string text;
  text.reserve(size);
  text += "{" + kind_text(resource, "List") + head_text(resource, head) + "\"items\":[";
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i) text += ',';
    text += prefix;
    text += items[i]->members;
    text += '}';
  }
  text += "]}\n";
  return text;
}

}  // namespace kube_sim
