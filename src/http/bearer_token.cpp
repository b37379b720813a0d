#include "http/bearer_token.h"

#include <strings.h>

bool bearer_token(std::string_view authorization, std::string& token) {
  constexpr std::string_view scheme = "Bearer ";
  if (authorization.size() < scheme.size() || strncasecmp(authorization.data(), scheme.data(), scheme.size()) != 0) {
    return false;
  }
  const size_t begin = authorization.find_first_not_of(' ', scheme.size());
  if (begin == authorization.npos) return false;
  const std::string_view shown = authorization.substr(begin);
  if (shown.find_first_of(" \t") != shown.npos) return false;
  token = shown;
  return true;
}
