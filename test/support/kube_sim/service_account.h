#pragma once

#include <string>

#include "support/kube_sim/front.h"

namespace kube_sim {

/**
 * Makes this process look like one in a pod of the cluster behind a front: writes "token", "ca.crt" and "namespace"
 * below /var/run/secrets/kubernetes.io/serviceaccount and sets KUBERNETES_SERVICE_HOST and KUBERNETES_SERVICE_PORT.
 *
 * For SANDBOX tests, where /var/run/secrets is empty and private. The destructor removes the files and puts the
 * environment back. Throws std::runtime_error when a file cannot be written. Not for use while other threads read the
 * environment.
 */
class Service_Account {
 public:
  static constexpr char directory[] = "/var/run/secrets/kubernetes.io/serviceaccount";

  explicit Service_Account(const Front& front, const std::string& token = "token-of-the-test");
  ~Service_Account();
  Service_Account(const Service_Account&) = delete;
  Service_Account& operator=(const Service_Account&) = delete;

  const std::string& token() const { return token_; }
  /// Writes another token, as it stands, without touching the old file's readers.
  void set_token(const std::string& token);
  void remove_token();
  /// Writes another "ca.crt".
  void set_ca(const std::string& pem);
  void remove_ca();
  /// Points the environment to another front; "ca.crt" stays.
  void set_front(const Front& front);

 private:
  std::string token_;
};

}  // namespace kube_sim
