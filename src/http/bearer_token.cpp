#include "http/bearer_token.h"

#include <openssl/crypto.h>
#include <strings.h>

bool bearer_token_fits(std::string_view authorization, std::string_view token) {
  constexpr std::string_view scheme = "Bearer ";
  if (authorization.size() < scheme.size() || strncasecmp(authorization.data(), scheme.data(), scheme.size()) != 0) {
    return false;
  }
  std::string_view shown = authorization.substr(scheme.size());
  shown.remove_prefix(std::min(shown.find_first_not_of(' '), shown.size()));
  return !token.empty() && shown.size() == token.size() && CRYPTO_memcmp(shown.data(), token.data(), token.size()) == 0;
}
