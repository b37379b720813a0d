#pragma once

#include <string>

namespace ctl {

/**
 * Makes this process look like one in a pod of the cluster at @a server: sets KUBERNETES_SERVICE_HOST and _PORT, and
 * enters a mount namespace of its own (with a user namespace, where it has no right to mount) in which token and CA lie
 * where pods find theirs. Nobody else sees them there.
 *
 * Called once, before any thread starts.
 * @param server     "https://HOST[:PORT]", port 443 by default.
 * @throws Failure (exit_usage): another form of URL, a file that cannot be read, or namespaces are forbidden.
 */
void assume_service_account(const std::string& server, const std::string& token_file, const std::string& ca_file);

}  // namespace ctl
