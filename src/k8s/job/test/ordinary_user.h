#pragma once

/// While it lives, the process has the rights of an ordinary user, also where the tests run as root.
class Ordinary_User {
 public:
  Ordinary_User();
  ~Ordinary_User();

 private:
  unsigned int user_;
};
