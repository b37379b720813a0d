#pragma once

#include <ostream>

#include "ctl/failure.h"
#include "ctl/options.h"

namespace ctl {

/// Makes the capability experiment, shows on @a err how far it is, and prints the verdicts that it published.
/// @throws Failure  the experiment could not be made.
Exit_Code sc_check(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace ctl
