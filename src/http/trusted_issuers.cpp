#include "http/trusted_issuers.h"

#include <sys/stat.h>

#include <cerrno>

namespace {

constexpr char service_account_ca[] = "/var/run/secrets/kubernetes.io/serviceaccount/ca.crt";

}  // namespace

const char* trusted_issuers_file() {
  // A link that leads nowhere is a file that can't be read, not one that isn't there.
  struct stat st;
  if (::lstat(service_account_ca, &st) == -1 && (errno == ENOENT || errno == ENOTDIR)) return nullptr;
  return service_account_ca;
}
