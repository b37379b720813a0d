#pragma once

#include <string>
#include <vector>

#include "support/kube_sim/api.h"

namespace kube_sim {

/// Sends the frame that tells how a command ended, in the form of the stream's protocol. Nothing is sent where there
/// was no protocol, nor, in the oldest ones, for a success.
bool send_exit(Exec_Stream& stream, int exit_code, const std::vector<std::string>& command);

/// The same for a command that could not be started.
bool send_not_started(Exec_Stream& stream, const std::string& why);

}  // namespace kube_sim
