#include "ordinary_user.h"

#include <unistd.h>

#include <cstdlib>

namespace {

constexpr uid_t nobody = 65534;

void become(uid_t user) {
  if (::seteuid(user) != 0) std::abort();
}

}  // namespace

Ordinary_User::Ordinary_User() : user_(::geteuid()) {
  if (user_ == 0) become(nobody);
}

Ordinary_User::~Ordinary_User() {
  become(user_);
}
