// The main of tests that bind-mount or use the fixed paths below /var/cache. It runs the test program again in a mount
// namespace of its own (and a user namespace, where we are not root or may not mount), in which /var/cache,
// /run/secrets and /opt/storage_class are empty and writable.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kolt/private_mounts.h"

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

bool make_empty(const char* path) {
  if (kolt::cover_directory(path)) return true;
  std::perror(path);
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
  for (const char* path : {"/run/secrets", "/opt/storage_class", "/var/cache"})
    if (!make_empty(path)) return 1;
  ::testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
