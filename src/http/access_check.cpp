#include "http/access_check.h"

#include <openssl/crypto.h>

Access_Check::~Access_Check() = default;

// Takes equally long for all tokens of the same length.
unsigned Token_Check::check(const std::string& token, std::shared_ptr<HTTP_Exchange>) {
  const bool same = token.size() == token_.size() && CRYPTO_memcmp(token.data(), token_.data(), token.size()) == 0;
  return same && !token.empty() ? 200 : 401;
}
