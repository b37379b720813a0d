#pragma once

#include <string>

#include "support/scripted_session.h"

namespace test_support {

/**
 * An exchange that was recorded with a real API server: the first one named @a name in test/data/kube-api/<group>.json.
 * The step expects the recorded request, without its body, and gives the recorded answer.
 */
Step recorded(const std::string& group, const std::string& name);

}  // namespace test_support
