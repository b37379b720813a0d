#include "support/kube_sim/service_account.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace kube_sim {

namespace {

std::string file(const char* name) {
  return std::string(Service_Account::directory) + "/" + name;
}

/// Puts a new file in the place of the old one, as the kubelet does: a reader sees one or the other.
void replace(const std::string& path, const std::string& content) {
  const std::string fresh = path + ".new";
  std::ofstream(fresh, std::ios::binary) << content;
  std::error_code error;
  std::filesystem::rename(fresh, path, error);
  if (error) throw std::runtime_error("can't write " + path);
}

}  // namespace

Service_Account::Service_Account(const Front& front, const std::string& token) {
  std::filesystem::create_directories(directory);
  replace(file("namespace"), "default");
  set_token(token);
  set_ca(front.ca());
  set_front(front);
}

Service_Account::~Service_Account() {
  std::error_code ignored;
  std::filesystem::remove_all(std::filesystem::path(directory).parent_path(), ignored);
  unsetenv("KUBERNETES_SERVICE_HOST");
  unsetenv("KUBERNETES_SERVICE_PORT");
}

void Service_Account::set_token(const std::string& token) {
  token_ = token;
  replace(file("token"), token);
}

void Service_Account::remove_token() {
  unlink(file("token").c_str());
}

void Service_Account::set_ca(const std::string& pem) {
  replace(file("ca.crt"), pem);
}

void Service_Account::remove_ca() {
  unlink(file("ca.crt").c_str());
}

void Service_Account::set_front(const Front& front) {
  setenv("KUBERNETES_SERVICE_HOST", "127.0.0.1", 1);
  setenv("KUBERNETES_SERVICE_PORT", std::to_string(front.port()).c_str(), 1);
}

}  // namespace kube_sim
