#include "http/http_base.h"

#include <strings.h>

const char* http_method_string(int method) {
  switch (method) {
    case HTTP_METHOD_OPTIONS:
      return "OPTIONS";
    case HTTP_METHOD_HEAD:
      return "HEAD";
    case HTTP_METHOD_GET:
      return "GET";
    case HTTP_METHOD_POST:
      return "POST";
    case HTTP_METHOD_PUT:
      return "PUT";
    case HTTP_METHOD_DELETE:
      return "DELETE";
    case HTTP_METHOD_PATCH:
      return "PATCH";
    default:
      return nullptr;
  }
}

namespace {

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t");
  if (begin == text.npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

bool same(std::string_view one, std::string_view other) {
  return one.size() == other.size() && ::strncasecmp(one.data(), other.data(), one.size()) == 0;
}

}  // namespace

bool http_list_holds(const char* list, std::string_view token) {
  if (!list) return false;
  for (std::string_view rest = list;;) {
    const std::size_t comma = rest.find(',');
    if (same(trimmed(rest.substr(0, comma)), token)) return true;
    if (comma == rest.npos) return false;
    rest.remove_prefix(comma + 1);
  }
}
