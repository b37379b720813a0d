#pragma once

#include <memory>
#include <optional>
#include <string>

#include "http/http_server_options.h"
#include "kolt/secret_file.h"

typedef struct ssl_ctx_st SSL_CTX;

namespace http_server {

/**
 * What a server proves itself with: a certificate with its chain, and the private key. The files are read again when
 * one of them has changed; a new pair that does not fit together, or cannot be read, leaves the old one in place.
 *
 * The key is a secret file (kolt/secret_file.h) without a passphrase. TLS is 1.2 with forward secrecy and AEAD, or 1.3.
 * Threads: one at a time.
 */
class TLS_Identity {
 public:
  explicit TLS_Identity(const TLS_Files& files) : files_(files) {}

  /// For the first time. @retval -1  one line at LM_ERROR.
  int load();

  /// For the next connection; connections that have one keep theirs. Never null behind load().
  /// Logs one line at LM_INFO for each new pair, and one at LM_ERROR for each fault of one.
  std::shared_ptr<SSL_CTX> current();

 private:
  struct Stamp {
    kolt::File_Stamp certificate, key;
    bool operator==(const Stamp&) const = default;
  };

  Stamp stamp() const { return {kolt::File_Stamp(files_.certificate), kolt::File_Stamp(files_.key)}; }
  std::string read(std::shared_ptr<SSL_CTX>& context) const;

  const TLS_Files files_;
  std::optional<Stamp> stamp_;  // of the pair in use
  std::shared_ptr<SSL_CTX> context_;
  std::string fault_;  // that has been logged
};

}  // namespace http_server
