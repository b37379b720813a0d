#pragma once

#include <string>

#include "kolt/export.h"

/// The value of an environment variable; empty if it is not set or @a name is null. Must not run beside a setenv().
TESSARIN_API std::string get_env_r(const char* name);
