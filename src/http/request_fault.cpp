#include "http/request_fault.h"

#include <algorithm>
#include <string_view>

namespace {

bool any(std::string_view text, bool (*is)(unsigned char)) {
  return std::any_of(text.begin(), text.end(), is);
}

}  // namespace

const char* request_fault(const HTTP_Request& request) {
  if (!http_method_string(request.method())) return "the method has no name";
  if (!request.uri().starts_with('/')) return "the URI does not begin with '/'";
  if (any(request.uri(), [](unsigned char c) { return c <= ' ' || c >= 0x7F; }))
    return "the URI holds characters that are not encoded";
  for (const HTTP_Headers::Field& field : request.headers()) {
    if (field.name.empty() || any(field.name, [](unsigned char c) { return c <= ' ' || c == ':' || c >= 0x7F; }))
      return "a header has a name that is none";
    if (any(field.value, [](unsigned char c) { return (c < ' ' && c != '\t') || c == 0x7F; }))
      return "a header holds control characters";
  }
  return nullptr;
}
