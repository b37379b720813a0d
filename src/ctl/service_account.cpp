#include "ctl/service_account.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "ctl/failure.h"
#include "kolt/private_mounts.h"

namespace ctl {

namespace fs = std::filesystem;

namespace {

constexpr char secrets_directory[] = "/var/run/secrets";

[[noreturn]] void forbidden(const std::string& what) {
  throw Failure(exit_usage,
                "This machine forbids what --server needs, a mount namespace: " + what + ": " + std::strerror(errno));
}

std::string content_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file.is_open() || file.bad() || text.empty()) throw Failure(exit_usage, "'" + path + "' cannot be read.");
  return text;
}

void write_file(const fs::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) forbidden(path);
}

void set_server(const std::string& server) {
  static const std::regex form("https://(\\[[0-9a-fA-F:.]+\\]|[^/:\\[\\]]+)(?::([0-9]{1,5}))?/?");
  std::smatch parts;
  if (!std::regex_match(server, parts, form)) throw Failure(exit_usage, "--server is no https://HOST:PORT: " + server);
  ::setenv("KUBERNETES_SERVICE_HOST", parts.str(1).c_str(), 1);
  ::setenv("KUBERNETES_SERVICE_PORT", parts[2].matched ? parts.str(2).c_str() : "443", 1);
}

}  // namespace

void assume_service_account(const std::string& server, const std::string& token_file, const std::string& ca_file) {
  const std::string token = content_of(token_file), ca = content_of(ca_file);
  set_server(server);
  if (!kolt::enter_private_mounts()) forbidden("unshare");
  if (!kolt::cover_directory(secrets_directory)) forbidden(secrets_directory);
  const fs::path account = fs::path(secrets_directory) / "kubernetes.io" / "serviceaccount";
  std::error_code error;
  if (!fs::create_directories(account, error)) forbidden(account);
  write_file(account / "token", token);
  write_file(account / "ca.crt", ca);
}

}  // namespace ctl
