#include "ctl/secret.h"

#include <termios.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>

#include "ctl/failure.h"
#include "host/rsa_encoder.h"
#include "kolt/secure_memory.h"

namespace ctl {

namespace {

constexpr int oaep_sha256 = 1;
/// More than any key can take.
constexpr size_t longest_secret = 4096;

const unsigned char* bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

/// What is typed at a terminal isn't shown while this lives.
class Hidden_Input {
 public:
  explicit Hidden_Input(int terminal) : terminal_(terminal), hides_(::tcgetattr(terminal, &before_) == 0) {
    if (!hides_) return;
    static constexpr char prompt[] = "Secret: ";
    static_cast<void>(::write(STDERR_FILENO, prompt, sizeof prompt - 1) == 0);
    termios hidden = before_;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    ::tcsetattr(terminal_, TCSAFLUSH, &hidden);
  }
  ~Hidden_Input() {
    if (!hides_) return;
    ::tcsetattr(terminal_, TCSAFLUSH, &before_);
    static_cast<void>(::write(STDERR_FILENO, "\n", 1) == 0);
  }
  bool is_terminal() const { return hides_; }

 private:
  const int terminal_;
  termios before_;
  const bool hides_;
};

secure_string read_secret(int input) {
  const Hidden_Input hidden(input);
  secure_string secret(longest_secret, '\0');
  size_t size = 0;
  while (size < secret.size()) {
    const ssize_t length = ::read(input, secret.data() + size, secret.size() - size);
    if (length < 0) throw Failure(exit_usage, std::string("The secret cannot be read: ") + std::strerror(errno));
    if (length == 0) break;
    size += static_cast<size_t>(length);
    if (hidden.is_terminal() && secret[size - 1] == '\n') break;
  }
  if (size != 0 && secret[size - 1] == '\n') --size;
  secret.resize(size);
  return secret;
}

std::string read_key(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string key{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file.is_open() || file.bad()) throw Failure(exit_usage, "The public key '" + path + "' cannot be read.");
  return key;
}

}  // namespace

std::string encrypt_secret(const std::string& public_key_file, int input) {
  const std::string key = read_key(public_key_file);
  const long capacity = RSA_Encoder::capacity(bytes(key), key.size());
  if (capacity <= 0)
    throw Failure(exit_usage, "'" + public_key_file + "' holds no RSA public key that is long enough.");

  const secure_string secret = read_secret(input);
  if (secret.empty()) throw Failure(exit_usage, "There is no secret on the standard input.");
  if (secret.size() > static_cast<size_t>(capacity))
    throw Failure(exit_usage, "The secret is too long: this key takes " + std::to_string(capacity) + " bytes at most.");
  const RSA_Encoder encoder(reinterpret_cast<const unsigned char*>(secret.data()), secret.size(), bytes(key),
                            key.size(), true, oaep_sha256);
  if (!encoder) throw Failure(exit_usage, "The secret cannot be enciphered with '" + public_key_file + "'.");
  return std::string(encoder.get(), encoder.get() + encoder.length());
}

}  // namespace ctl
