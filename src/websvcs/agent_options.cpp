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
  app.add_option("--listen", listen, "Loopback address to listen on too, for callers with the token")
      ->type_name("ADDRESS:PORT");
  app.add_option("--answer-timeout", answer_timeout, "Seconds after which a request is answered with 504; 0: never")
      ->check(CLI::Range(0, 86400))
      ->capture_default_str();
  app.add_option("--host-key", host_key, "PEM file with the RSA key that secrets in requests are enciphered for")
      ->check(absolute_path);
  try {
    app.parse(argc, argv);
    const std::string fault = listen.empty() ? "" : split_address(listen, listen_address, listen_port);
    if (!fault.empty()) throw CLI::ValidationError("--listen", fault);
  } catch (const CLI::ParseError& e) {
    exit_code = app.exit(e);
    return false;
  }
  if (socket.empty()) socket = state_dir + "/agent.sock";
  return true;
}
