#pragma once

#include <ostream>

#include "ctl/failure.h"
#include "ctl/options.h"

namespace ctl {

/**
 * Shows the agent's status page to a browser on this machine until SIGINT or SIGTERM: prints a URL on a loopback
 * address whose path is a secret of this run, and asks the agent for the page each time the URL is read. Whoever does
 * not know the URL gets nothing, so that other users of the machine stay out.
 * @throws Failure  the agent does not answer or refuses, or the port is taken.
 */
Exit_Code run_dashboard(const Options& options, std::ostream& out);

}  // namespace ctl
