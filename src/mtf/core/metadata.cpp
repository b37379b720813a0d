#include "mtf/core/metadata.h"

#include <utility>

#include "json_spirit/json_spirit_helper.h"

namespace MTF {

Metadata::Metadata(json_spirit::Object object) : object_(std::move(object)) {}

bool Metadata::get_pool_uuid(std::string& uuid) const {
  return get("pool_uuid", uuid);
}
bool Metadata::get_host_uuid(std::string& uuid) const {
  return get("host_uuid", uuid);
}
bool Metadata::get_uuid(std::string& uuid) const {
  return get("uuid", uuid);
}

bool Metadata::get(const char* key, std::string& text) const {
  return json_spirit::object_get(object_, key, text);
}

}  // namespace MTF
