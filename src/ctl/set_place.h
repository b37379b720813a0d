#pragma once

#include "ctl/agent.h"
#include "ctl/job_params.h"
#include "ctl/options.h"

namespace ctl {

/// Where the sets of a job lie. What the command line leaves open the agent tells; without a pool of its own it is the
/// directory "pool" beside its tasks. @throws Failure  it does not tell.
Set_Place place_of_job(const Options& options, Agent& agent);

}  // namespace ctl
