#include "ctl/sets/set_chains.h"

#include <algorithm>

namespace ctl {

namespace {

bool has_data_in(const Pool_Set& user, const MTF_BACKUP::Pool_Key& used) {
  if (user.key.host != used.host || user.key.resource != used.resource) return false;
  const std::string dir = used.set.dir();
  const auto& chain = user.record.chain;
  return std::any_of(chain.begin(), chain.end(), [&](const MTF_BACKUP::Chain_Link& link) { return link.dir == dir; });
}

}  // namespace

std::vector<size_t> Set_Chains::dependents(const MTF_BACKUP::Pool_Key& key) const {
  std::vector<size_t> found;
  for (size_t i = 0; i < sets_.size(); ++i)
    if (has_data_in(sets_[i], key)) found.push_back(i);
  return found;
}

}  // namespace ctl
