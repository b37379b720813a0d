#include "kolt/get_env_r.h"

#include <cstdlib>

std::string get_env_r(const char* name) {
  const char* value = name == nullptr ? nullptr : std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}
