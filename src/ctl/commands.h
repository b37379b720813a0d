#pragma once

#include <ostream>

#include "ctl/failure.h"
#include "ctl/options.h"

namespace ctl {

/**
 * Runs the command and gives the code to exit with. Results go to @a out: with --json exactly one JSON document,
 * otherwise text for people. Progress and errors go to @a err; with --json there is no progress.
 * @throws Failure: nothing was printed to @a out.
 */
Exit_Code run_command(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace ctl
