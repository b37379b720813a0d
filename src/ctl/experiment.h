#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "ctl/progress_view.h"
#include "ctl/storage_class_file.h"
#include "k8s/api/k8s_client.h"
#include "k8s/api/k8s_storage_class_capability_config.h"

namespace ctl {

/// What became of a capability experiment.
struct Experiment {
  bool made = false;         ///< it ran to its end
  bool interrupted = false;  ///< the user ended it
  bool published = false;    ///< the verdicts are in the config map
  Validation_Units csi;      ///< as they stood at the end

  /// What could not be removed, or not be asked for, in words: "claim abcdefgh".
  std::vector<std::string> left;
};

/**
 * Makes the experiment in @a ns, shows on @a err how far it is, and removes all that it made.
 *
 * The first SIGINT or SIGTERM ends it at the next wait, with the removal; the second one ends the program at once, and
 * tells how to remove what is left. Needs CURRENT_NAMESPACE.
 *
 * @param timeout  see Storage_Class_Capability_Config.
 */
Experiment make_experiment(K8S_Client_var client, const std::string& ns, const Storage_Classes& classes, int timeout,
                           std::ostream& err, Progress_View::Mode mode);

}  // namespace ctl
