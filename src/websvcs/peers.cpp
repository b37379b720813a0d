#include "websvcs/peers.h"

#include "ace/Log_Msg.h"
#include "http/websocket_options.h"
#include "kolt/secret_file.h"

namespace {

constexpr size_t longest_ca = 1 << 20;

}  // namespace

int set_peers(const Agent_Options& options) {
  std::string unused;
  const std::string fault = options.peer_ca.empty() ? "" : kolt::read_public_file(options.peer_ca, longest_ca, unused);
  if (!fault.empty()) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("No CA of peers: %C.\n"), fault.c_str()), -1);
  WebSocket_Options& peers = *WebSocket_Options::instance();
  peers.set_identity({options.peer_ca, options.peer_name, options.peer_token_file});
  peers.ssl(options.peer_tls);
  return 0;
}
