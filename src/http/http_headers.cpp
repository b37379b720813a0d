#include "http/http_headers.h"

#include <strings.h>

#include <algorithm>

namespace {

auto named(const char* name) {
  return [name](const HTTP_Headers::Field& field) { return ::strcasecmp(field.name.c_str(), name) == 0; };
}

}  // namespace

void HTTP_Headers::put(const char* name, const char* value, bool replace) {
  if (!name) return;
  if (!value) {
    std::erase_if(fields_, named(name));
    return;
  }
  const auto old = std::find_if(fields_.begin(), fields_.end(), named(name));
  if (!replace || old == fields_.end()) {
    fields_.push_back({name, value});
    return;
  }
  old->value = value;
  fields_.erase(std::remove_if(old + 1, fields_.end(), named(name)), fields_.end());
}

void HTTP_Headers::put(int head, const char* value, bool replace) {
  put(http_head_string(head, 0), value, replace);
}

const char* HTTP_Headers::get(const char* name, bool first) const {
  if (!name) return nullptr;
  if (first) {
    const auto field = std::find_if(fields_.begin(), fields_.end(), named(name));
    return field == fields_.end() ? nullptr : field->value.c_str();
  }
  const auto field = std::find_if(fields_.rbegin(), fields_.rend(), named(name));
  return field == fields_.rend() ? nullptr : field->value.c_str();
}

const char* HTTP_Headers::get(int head, bool first) const {
  return get(http_head_string(head, 0), first);
}
