#pragma once

#include <memory>
#include <string>

namespace kube_sim {

enum class Certificate_Kind {
  GOOD,         ///< for 127.0.0.1 and localhost, signed by the CA
  EXPIRED,      ///< as GOOD, but its time ended yesterday
  OTHER_CA,     ///< as GOOD, but signed by another CA of the same name
  WRONG_NAME,   ///< signed by the CA for wrong.example.com and 192.0.2.1
  SELF_SIGNED,  ///< as GOOD, but signed by itself
};

/// A certificate with its private key, both PEM.
struct Certificate {
  std::string certificate;
  std::string key;
};

/// A certificate authority made for one test run. Every object has keys of its own, so that certificates of one are not
/// trusted by those who know another. Throws std::runtime_error when OpenSSL fails. Threads: may be shared.
class Certificates {
 public:
  Certificates();
  ~Certificates();
  Certificates(const Certificates&) = delete;
  Certificates& operator=(const Certificates&) = delete;

  /// The CA's certificate, PEM: what stands in "ca.crt".
  const std::string& ca() const;
  /// Makes a new certificate.
  Certificate server(Certificate_Kind kind) const;

 private:
  struct Authority;
  std::unique_ptr<Authority> authority_;
};

}  // namespace kube_sim
