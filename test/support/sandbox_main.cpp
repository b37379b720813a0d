// The main of tests that bind-mount or use the fixed paths below /var/cache. It runs the test program again in a mount
// namespace of its own (and a user namespace, where we are not root or may not mount), in which /var/cache,
// /run/secrets and /opt/storage_class are empty and writable.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "ace/Log_Msg.h"

namespace fs = std::filesystem;

namespace {

constexpr char inside_mark[] = "TESSARIN_TEST_SANDBOX";

bool may_unshare(const char* flags) {
  const std::string command = std::string("unshare ") + flags + " mount -t tmpfs tmpfs /var/cache >/dev/null 2>&1";
  return std::system(command.c_str()) == 0;
}

void run_again(const char* flags, char** argv) {
  std::vector<char*> args = {const_cast<char*>("unshare"), const_cast<char*>(flags), const_cast<char*>("--propagation"),
                             const_cast<char*>("private")};
  for (char** arg = argv; *arg != nullptr; ++arg) args.push_back(*arg);
  args.push_back(nullptr);
  setenv(inside_mark, "1", 1);
  execvp("unshare", args.data());
}

bool mount_tmpfs(const char* path) {
  if (mount("tmpfs", path, "tmpfs", 0, "mode=755") == 0) return true;
  std::perror(path);
  return false;
}

/// Makes @a entry appear below @a copy as well. What cannot be shown (a mount point that is gone) is left out.
void show_again(const fs::directory_entry& entry, const fs::path& copy) {
  const fs::path target = copy / entry.path().filename();
  std::error_code ignored;
  if (entry.is_symlink(ignored)) {
    fs::copy_symlink(entry.path(), target, ignored);
    return;
  }
  if (entry.is_directory(ignored))
    fs::create_directory(target, ignored);
  else
    mknod(target.c_str(), S_IFREG | 0600, 0);
  mount(entry.path().c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr);
}

/// Puts an empty @a name below @a parent in place. Where there is none and we may make none, or may not leave it behind
/// on the host, @a parent becomes a tmpfs of ours that shows all else that it held. It is put together on /var/cache.
bool make_empty(const fs::path& parent, const char* name) {
  if (fs::is_directory(parent / name)) return mount_tmpfs((parent / name).c_str());
  if (!mount_tmpfs("/var/cache")) return false;
  for (const fs::directory_entry& entry : fs::directory_iterator(parent)) show_again(entry, "/var/cache");
  fs::create_directory(fs::path("/var/cache") / name);
  if (mount("/var/cache", parent.c_str(), nullptr, MS_MOVE, nullptr) == 0) return true;
  std::perror(parent.c_str());
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (std::getenv(inside_mark) == nullptr) {
    char self[4096] = {};
    if (readlink("/proc/self/exe", self, sizeof self - 1) > 0) argv[0] = self;
    for (const char* flags : {"-m", "-Urm"})
      if (may_unshare(flags)) run_again(flags, argv);
    std::printf("SKIPPED: this machine forbids user and mount namespaces, so nothing here was tested\n");
    return 0;
  }
  if (!make_empty("/run", "secrets") || !make_empty("/opt", "storage_class") || !mount_tmpfs("/var/cache")) return 1;
  ::testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
