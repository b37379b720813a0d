#include "k8s/websvcs_agent/k8s_sclient/first_match.h"

#include <glob.h>

#include "kolt/scoped_deleter.h"

std::optional<std::string> first_match(const std::string& pattern) {
  glob_t globber = {};
  const auto clean_up = make_deleter([&globber] { globfree(&globber); });
  if (glob(pattern.c_str(), 0, nullptr, &globber) != 0 || globber.gl_pathc == 0) return std::nullopt;
  return globber.gl_pathv[0];
}
