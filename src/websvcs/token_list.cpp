#include "websvcs/token_list.h"

#include <openssl/crypto.h>
#include <openssl/sha.h>

#include <sstream>

#include "ace/Log_Msg.h"
#include "kolt/secure_memory.h"

namespace {

constexpr size_t longest_list = 1 << 20;
constexpr char token_characters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~+/=";

}  // namespace

Token_Digest digest_of(const std::string& token) {
  Token_Digest digest;
  ::SHA256(reinterpret_cast<const unsigned char*>(token.data()), token.size(), digest.data());
  return digest;
}

int Token_List::load() {
  const std::lock_guard guard(lock_);
  std::string fault = read(tokens_);
  if (fault.empty() && tokens_.empty()) fault = "'" + path_ + "' holds no token";
  if (!fault.empty()) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("No tokens: %C.\n"), fault.c_str()), -1);
  return 0;
}

// Takes as long for a token that stands there as for one that does not.
unsigned Token_List::check(const Token_Digest& token) {
  const std::lock_guard guard(lock_);
  const kolt::File_Stamp now(path_);
  if (!(now == stamp_)) {
    stamp_ = now;
    read_again();
  }
  if (!fault_.empty()) return 503;
  bool found = false;
  for (const Token_Digest& good : tokens_) found |= CRYPTO_memcmp(token.data(), good.data(), good.size()) == 0;
  return found ? 200 : 401;
}

void Token_List::read_again() {
  fault_ = read(tokens_);
  if (fault_.empty()) {
    ACE_DEBUG(
        (LM_INFO, ACE_TEXT("'%C' has changed: %u tokens.\n"), path_.c_str(), static_cast<unsigned>(tokens_.size())));
  } else {
    tokens_.clear();
    ACE_ERROR((LM_ERROR, ACE_TEXT("No token is accepted: %C.\n"), fault_.c_str()));
  }
}

// What is wrong with a line is told by its number: the line may be a token.
std::string Token_List::read(std::vector<Token_Digest>& tokens) const {
  std::string text;
  const std::string fault = kolt::read_secret_file(path_, longest_list, text);
  if (!fault.empty()) return fault;
  std::vector<Token_Digest> found;
  std::istringstream lines(text);
  int number = 0;
  std::string wrong;
  for (std::string line; std::getline(lines, line) && wrong.empty();) {
    ++number;
    line.erase(line.find_last_not_of(" \t\r") + 1);
    if (line.empty() || line[0] == '#') continue;
    if (line.size() < shortest_token) wrong = "is shorter than 16 characters";
    if (line.find_first_not_of(token_characters) != line.npos) wrong = "is no token";
    found.push_back(digest_of(line));
    secure_memset(line.data(), 0, line.size());
  }
  secure_memset(text.data(), 0, text.size());
  if (!wrong.empty()) return "line " + std::to_string(number) + " of '" + path_ + "' " + wrong;
  tokens = std::move(found);
  return {};
}
