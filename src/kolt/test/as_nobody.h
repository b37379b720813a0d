#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

/// Takes away root's rights over files while it lives, since root may open anything. Nothing changes for other users.
class As_Nobody {
 public:
  As_Nobody() : was_(geteuid()) {
    if (was_ == 0 && seteuid(65534) != 0) ADD_FAILURE() << "cannot give up root's rights";
  }
  ~As_Nobody() {
    if (was_ == 0 && seteuid(was_) != 0) ADD_FAILURE() << "cannot become root again";
  }

 private:
  const uid_t was_;
};
