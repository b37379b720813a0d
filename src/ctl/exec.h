#pragma once

#include <ostream>

#include "ctl/failure.h"
#include "ctl/options.h"

namespace ctl {

/// Runs a command in a container. Its standard output goes to @a out and its standard error to @a err as they come.
/// @return the command's own exit status; exit_job_failed if that is not known.
/// @throws Failure  the pod or the container is not there, or not the one that is meant.
Exit_Code exec(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace ctl
