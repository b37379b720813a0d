#include "websvcs/node_checks.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "kolt/mkdir_p.h"
#include "kolt/mount_table.h"
#include "kolt/posix_fd.h"
#include "websvcs/pool_check.h"

namespace {

std::string failed(const std::string& what, const std::string& path) {
  return what + " '" + path + "': " + std::strerror(errno);
}

std::string kubelet_fault(const std::string& directory) {
  const Posix_Fd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd ? "" : failed("cannot read", directory);
}

// In a container the directory is a mount of its own; what the node mounts later shows in it only if it receives
// mounts.
std::string propagation_fault(const std::string& directory) {
  Mount_Of mount;
  if (!find_mount_of(directory.c_str(), mount)) return failed("cannot find the mount of", directory);
  if (mount.receives || mount.point == "/") return "";
  return "'" + mount.point + "' is mounted without propagation, volumes that are mounted later are not seen";
}

void clear(const std::string& place) {
  std::vector<std::string> mounts;
  if (mounts_below(place.c_str(), mounts)) {
    for (const std::string& mount : mounts) ::umount2(mount.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);
  }
  for (const char* name : {"/from", "/to", ""}) ::rmdir((place + name).c_str());
}

std::string bind_fault(const std::string& state_dir) {
  const std::string place = state_dir + "/self-check";
  const std::string from = place + "/from";
  const std::string to = place + "/to";
  clear(place);  // of a run that was killed
  if (!mkdir_p(from.c_str(), 0700) || !mkdir_p(to.c_str(), 0700)) return failed("cannot make", from);
  const std::string fault =
      ::mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) == 0 ? "" : failed("cannot bind a directory to", to);
  clear(place);
  return fault;
}

// The right to mount does not change while a process lives; no need to mount every minute.
std::function<std::string()> once(std::function<std::string()> check) {
  return [check = std::move(check), fault = std::make_shared<std::unique_ptr<std::string>>()] {
    if (!*fault) *fault = std::make_unique<std::string>(check());
    return **fault;
  };
}

std::string private_fault(const std::string& directory) {
  const std::string trial = directory + "/self-check";
  if (!mkdir_p(trial.c_str(), 0700)) return failed("cannot make", trial);
  return ::rmdir(trial.c_str()) == 0 ? "" : failed("cannot remove", trial);
}

std::string state_fault(const std::string& directory) {
  const std::string path = directory + "/self-check.tmp";
  const std::string block(4096, '\0');
  const Posix_Fd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!fd) return failed("cannot make", path);
  const bool written =
      ::write(fd.get(), block.data(), block.size()) == static_cast<ssize_t>(block.size()) && ::fsync(fd.get()) == 0;
  const std::string fault = written ? "" : failed("cannot write", path);
  ::unlink(path.c_str());
  return fault;
}

}  // namespace

std::vector<Check> node_checks(const Node_Paths& paths) {
  std::vector<Check> checks = {
      {"kubelet", [=] { return kubelet_fault(paths.kubelet_dir); }},
      {"propagation", [=] { return propagation_fault(paths.kubelet_dir); }},
      {"bind", once([=] { return bind_fault(paths.state_dir); })},
      {"private", [=] { return private_fault(paths.private_dir); }},
      {"state", [=] { return state_fault(paths.state_dir); }},
  };
  if (!paths.pool.empty()) checks.push_back({"pool", [=] { return pool_fault(paths.pool); }});
  return checks;
}
