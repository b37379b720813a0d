#include "k8s/api/mount_calls.h"

#include <fcntl.h>
#include <sys/mount.h>

namespace k8s {

namespace {

Mount_Calls system_calls;
Mount_Calls* calls_in_use = &system_calls;

}  // namespace

int Mount_Calls::mount(const char* src, const char* target, unsigned long flags) {
  return ::mount(src, target, nullptr, flags, nullptr);
}

int Mount_Calls::seal(const char* target) {
  mount_attr attributes = {};
  attributes.attr_set = MOUNT_ATTR_RDONLY;
  attributes.propagation = MS_PRIVATE;
  return mount_setattr(AT_FDCWD, target, AT_RECURSIVE, &attributes, sizeof attributes);
}

int Mount_Calls::umount(const char* target, int flags) {
  return ::umount2(target, flags);
}

Mount_Calls& Mount_Calls::instance() {
  return *calls_in_use;
}

void Mount_Calls::install(Mount_Calls* calls) {
  calls_in_use = calls != nullptr ? calls : &system_calls;
}

}  // namespace k8s
