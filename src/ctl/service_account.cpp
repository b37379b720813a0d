#include "ctl/service_account.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "ctl/failure.h"
#include "kolt/posix_fd.h"

namespace ctl {

namespace fs = std::filesystem;

namespace {

constexpr char run_directory[] = "/var/run";

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

void enter_namespaces() {
  const uid_t user = ::geteuid();
  const gid_t group = ::getegid();
  if (::unshare(CLONE_NEWNS) != 0) {
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) forbidden("unshare");
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    write_file("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
  }
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) forbidden("/");
}

void mount_tmpfs(const fs::path& path) {
  if (::mount("tmpfs", path.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=755") != 0) forbidden(path);
}

/// Makes @a entry appear below @a directory as well. What cannot be shown is left out.
void show_again(const fs::directory_entry& entry, const fs::path& directory) {
  const fs::path target = directory / entry.path().filename();
  std::error_code ignored;
  if (entry.is_symlink(ignored)) {
    fs::copy_symlink(entry.path(), target, ignored);
    return;
  }
  if (entry.is_directory(ignored))
    fs::create_directory(target, ignored);
  else
    ::mknod(target.c_str(), S_IFREG | 0600, 0);
  ::mount(entry.path().c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr);
}

/// An empty directory of ours for the secrets. Where there is none on this machine its parent becomes a tmpfs that
/// shows all else that the parent held: the resolver's files lie there, too.
fs::path make_secrets_directory() {
  std::error_code error;
  const fs::path run = fs::canonical(run_directory, error);
  if (error) forbidden(run_directory);
  const fs::path secrets = run / "secrets";
  if (fs::is_directory(secrets, error)) {
    mount_tmpfs(secrets);
    return secrets;
  }
  const Posix_Fd covered(::open(run.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  mount_tmpfs(run);
  // The slash: what is listed is the directory, not the link to it.
  for (const auto& entry : fs::directory_iterator("/proc/self/fd/" + std::to_string(covered.get()) + "/", error))
    show_again(entry, run);
  if (!fs::create_directory(secrets, error)) forbidden(secrets);
  return secrets;
}

}  // namespace

void assume_service_account(const std::string& server, const std::string& token_file, const std::string& ca_file) {
  const std::string token = content_of(token_file), ca = content_of(ca_file);
  set_server(server);
  enter_namespaces();
  const fs::path account = make_secrets_directory() / "kubernetes.io" / "serviceaccount";
  std::error_code error;
  if (!fs::create_directories(account, error)) forbidden(account);
  write_file(account / "token", token);
  write_file(account / "ca.crt", ca);
}

}  // namespace ctl
