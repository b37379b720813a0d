#pragma once

#include <memory>
#include <string>

#include "support/kube_sim/api.h"

namespace kube_sim {

/**
 * What a real server answered to an upgrade, frame by frame: the exchange @a name of the recording @a file (JSON, see
 * test/data/kube-api/README.md).
 *
 * @return null, with @a refusal filled in, where the handshake was refused.
 * @throw std::runtime_error when there is no such recording.
 */
std::unique_ptr<Exec> recorded_exec(const std::string& file, const std::string& name, Answer& refusal);

}  // namespace kube_sim
