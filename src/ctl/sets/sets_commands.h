#pragma once

#include <map>
#include <ostream>
#include <string>

#include "ctl/cluster_commands.h"
#include "ctl/failure.h"
#include "ctl/options.h"

namespace ctl {

/// The commands that work on the sets of a pool, by name.
const std::map<std::string, Command>& sets_commands();

/// Lists the sets; exit_job_failed where some cannot be read.
Exit_Code sets_list(const Options& options, std::ostream& out, std::ostream& err);

/// A set as its commit record tells it, or what lies in it at a path.
Exit_Code sets_show(const Options& options, std::ostream& out, std::ostream& err);

/// Entries whose names or paths a pattern matches; exit_job_failed where there is none, or some set cannot be read.
Exit_Code sets_find(const Options& options, std::ostream& out, std::ostream& err);

/// Compares sets with what was written down about them; exit_job_failed where something is damaged.
Exit_Code sets_verify(const Options& options, std::ostream& out, std::ostream& err);

/// Brings files and directories of a set back, straight from the pool.
Exit_Code sets_restore(const Options& options, std::ostream& out, std::ostream& err);

/// Writes a set as one tar archive or one medium.
Exit_Code sets_export(const Options& options, std::ostream& out, std::ostream& err);

/// Removes sets that no other set needs.
Exit_Code sets_remove(const Options& options, std::ostream& out, std::ostream& err);

/// Removes sets by rules of what to keep.
Exit_Code sets_prune(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace ctl
