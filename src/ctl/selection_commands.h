#pragma once

#include <ostream>

#include "ctl/failure.h"
#include "ctl/options.h"

namespace ctl {

/// Storage classes, with the verdicts of the last capability experiment.
Exit_Code sc_show(const Options& options, std::ostream& out, std::ostream& err);

/// What a selection comes to, what of it is missing, and the storage classes that it touches. exit_job_failed if
/// something is missing.
Exit_Code entries_check(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace ctl
