#pragma once

#include "websvcs/agent_options.h"

/// Tells the platform how agents of other nodes are called, for the plug-in's Kubernetes library.
/// @retval -1  their CA cannot be read; one line at LM_ERROR.
int set_peers(const Agent_Options& options);
