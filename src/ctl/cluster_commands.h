#pragma once

#include <map>
#include <ostream>
#include <string>

#include "ctl/failure.h"
#include "ctl/options.h"

namespace ctl {

typedef Exit_Code (*Command)(const Options&, std::ostream& out, std::ostream& err);

/// The commands that ask the cluster itself, by name.
const std::map<std::string, Command>& cluster_commands();

}  // namespace ctl
