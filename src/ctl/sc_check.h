#pragma once

#include <ostream>

#include "ctl/failure.h"
#include "ctl/options.h"

namespace ctl {

/**
 * Makes the capability experiment with the classes of a file, shows on @a err how far it is, publishes the verdicts and
 * prints them. An interrupt ends it early: what was made is removed, and nothing is published.
 *
 * @return exit_job_failed: something is left behind in the cluster; exit_refused: the verdicts were printed, but not
 * published.
 * @throws Failure  the experiment could not be made, or was interrupted (exit_job_failed).
 */
Exit_Code sc_check(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace ctl
