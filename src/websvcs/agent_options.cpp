#include "websvcs/agent_options.h"

#include <CLI/CLI.hpp>
#include <filesystem>

namespace {

const CLI::Validator absolute_path(
    [](const std::string& path) { return !path.empty() && path[0] == '/' ? "" : "must be an absolute path"; }, "PATH");

std::string default_svc_conf() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return (program.parent_path().parent_path() / "etc/svc.conf").string();
}

/// "127.0.0.1:8080" or "[::1]:8080". @return the fault, empty if there is none.
std::string split_address(const std::string& text, std::string& address, unsigned short& port) {
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) return "must be ADDRESS:PORT";
  const std::string digits = text.substr(colon + 1);
  if (digits.size() > 5 || digits.find_first_not_of("0123456789") != std::string::npos) return "has no valid port";
  const unsigned long number = std::stoul(digits);
  if (number > 65535) return "has no valid port";
  port = static_cast<unsigned short>(number);
  address = text.substr(0, colon);
  if (address.front() == '[' && address.back() == ']') address = address.substr(1, address.size() - 2);
  return "";
}

// A service account as Kubernetes names it: a DNS label and a DNS subdomain.
std::string account_fault(const std::string& text) {
  const size_t slash = text.find('/');
  constexpr char name_characters[] = "abcdefghijklmnopqrstuvwxyz0123456789.-";
  const bool good = slash != std::string::npos && slash > 0 && slash + 1 < text.size() &&
                    text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") == slash &&
                    text.find_first_not_of(name_characters, slash + 1) == std::string::npos;
  return good ? "" : "must be NAMESPACE/NAME";
}

const CLI::Validator service_account(account_fault, "NAMESPACE/NAME");

void add_access(CLI::App& app, Agent_Options& options) {
  const char* const group = "Who may call by TCP";
  auto* const certificate =
      app.add_option("--tls-cert", options.tls_cert, "PEM file: the agent's certificate, then its chain")
          ->check(absolute_path)
          ->group(group);
  auto* const key = app.add_option("--tls-key", options.tls_key, "PEM file: its private key, readable by no one else")
                        ->check(absolute_path)
                        ->group(group);
  certificate->needs(key);
  key->needs(certificate);
  app.add_option("--token-file", options.token_file,
                 "Tokens that callers may show, one per line [without TLS: the "
                 "file \"token\" in the state directory]")
      ->check(absolute_path)
      ->group(group);
  auto* const review =
      app.add_flag("--token-review", options.token_review, "Ask the API server whose token a caller shows")
          ->group(group);
  app.add_option("--token-audience", options.token_audiences, "What such a token has to be made for; may be repeated")
      ->needs(review)
      ->group(group);
  app.add_option("--allow-service-account", options.allowed_accounts,
                 "Service account that may call; to be repeated for each")
      ->check(service_account)
      ->needs(review)
      ->group(group);
}

void add_peers(CLI::App& app, Agent_Options& options) {
  const char* const group = "How agents of other nodes are called";
  auto* const tls = app.add_flag("--peer-tls", options.peer_tls, "By TLS, with a token")->group(group);
  const auto add = [&](const char* name, std::string& value, const char* text) {
    return app.add_option(name, value, text)->needs(tls)->group(group);
  };
  add("--peer-ca", options.peer_ca, "PEM file: who signs their certificates [the cluster's CA]")->check(absolute_path);
  add("--peer-name", options.peer_name, "What their certificates name [the address that is called]");
  add("--peer-token-file", options.peer_token_file, "Token that is shown to them [the service account's]")
      ->check(absolute_path);
}

void add_limits(CLI::App& app, Agent_Options& options) {
  const auto add = [&app](const char* name, auto& value, const char* text) {
    return app.add_option(name, value, text)->group("What callers may take")->capture_default_str();
  };
  add("--idle-timeout", options.idle_timeout, "Seconds after which an idle connection is closed; 0: never")
      ->check(CLI::Range(0, 86400));
  add("--max-batch", options.max_batch, "Messages that a batch may hold")->check(CLI::Range(1, 100'000));
  add("--max-connections", options.max_connections, "Connections that are served at a time")
      ->check(CLI::Range(1, 100'000));
  add("--max-connections-per-peer", options.max_connections_per_peer, "Those of one address or user")
      ->check(CLI::Range(1, 100'000));
  add("--max-request-bytes", options.max_request_bytes, "Bytes that a request or a WebSocket message may have")
      ->check(CLI::Range(1024, 1024 * 1024 * 1024));
}

}  // namespace

bool Agent_Options::parse(int argc, char* argv[], int& exit_code) {
  svc_conf = default_svc_conf();
  std::string listen;
  CLI::App app("Backup agent for the volumes of a Kubernetes node. Runs in the foreground until SIGTERM or SIGINT.");
  app.set_version_flag("--version", TESSARIN_VERSION);
  app.add_option("--svc-conf", svc_conf, "ACE service configuration file")->check(absolute_path)->capture_default_str();
  app.add_option("--state-dir", state_dir, "Tasks, token and socket")->check(absolute_path)->capture_default_str();
  app.add_option("--socket", socket, "Unix socket to listen on [agent.sock in the state directory]")
      ->check(absolute_path);
  app.add_option("--listen", listen, "Address to listen on too, for callers with a token; with TLS any, else loopback")
      ->type_name("ADDRESS:PORT");
  app.add_option("--answer-timeout", answer_timeout, "Seconds after which a request is answered with 504; 0: never")
      ->check(CLI::Range(0, 86400))
      ->capture_default_str();
  app.add_option("--host-key", host_key, "PEM file with the RSA key that secrets in requests are enciphered for")
      ->check(absolute_path);
  app.add_option("--check-pool", check_pool, "Pool without which the agent is not ready")->type_name("URL|FILE");
  app.add_option("--kubelet-dir", kubelet_dir, "Where the kubelet mounts the volumes of the node")
      ->check(absolute_path)
      ->capture_default_str();
  std::string log_format = "text";
  app.add_option("--log-format", log_format, "Lines of text, or one JSON object per line")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  app.set_config("--config", "", "File with options, one per line: listen = \"127.0.0.1:8443\"")
      ->check(absolute_path)
      ->type_name("PATH");
  app.allow_config_extras(CLI::config_extras_mode::error);
  add_access(app, *this);
  add_peers(app, *this);
  add_limits(app, *this);
  try {
    app.parse(argc, argv);
    const std::string fault = listen.empty() ? "" : split_address(listen, listen_address, listen_port);
    if (!fault.empty()) throw CLI::ValidationError("--listen", fault);
    if (const auto* const file = app.get_config_ptr(); *file) config = file->as<std::string>();
  } catch (const CLI::ParseError& e) {
    exit_code = app.exit(e);
    return false;
  }
  json_log = log_format == "json";
  if (socket.empty()) socket = state_dir + "/agent.sock";
  return true;
}
