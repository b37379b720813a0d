#include "ctl/options.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <limits>

#include "ctl/failure.h"

namespace ctl {

namespace {

constexpr char default_agent[] = "unix:///var/lib/tessarin/agent.sock";
constexpr char default_resource[] = "default";
constexpr uint32_t max_seq = std::numeric_limits<uint32_t>::max();

constexpr char footer[] =
    "Exit codes: 0 done, 1 the job, the check or the command in the pod failed, 2 wrong usage, 3 no agent or server\n"
    "answers, 4 it refuses, 5 the pool cannot be read, 6 the job has not ended yet, 130 interrupted (a job: twice).\n"
    "exec ends with the exit code of the command that it runs.\n";

std::string from_environment(const char* name, const char* otherwise = "") {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : otherwise;
}

/// The arguments from the last to the first. One in brackets would be taken for a list and not for a pattern.
std::vector<std::string> reversed_arguments(int argc, const char* const* argv) {
  std::vector<std::string> arguments;
  for (int i = argc - 1; i > 0; --i) {
    const std::string argument = argv[i];
    const bool brackets = argument.size() > 1 && argument.front() == '[' && argument.back() == ']';
    arguments.push_back(brackets ? "./" + argument : argument);
  }
  return arguments;
}

CLI::App* add_command(CLI::App& app, Options& options, const char* name, const char* text) {
  CLI::App* const command = app.add_subcommand(name, text);
  command->callback([&options, name] { options.command = name; });
  command->add_option("--agent", options.agent,
                      "unix:///PATH, https://HOST:PORT or, on this machine, http://HOST:PORT of the agent; default: "
                      "TESSARIN_AGENT, or the agent's usual socket");
  command->add_option("--token-file", options.token_file,
                      "file with the token that the agent asks for; default: TESSARIN_TOKEN_FILE");
  command->add_option("--ca", options.ca_file,
                      "PEM file that vouches for the agent's certificate; default: TESSARIN_CA, or the system's store");
  command->add_option("--agent-name", options.agent_name,
                      "what that certificate names; default: TESSARIN_AGENT_NAME, or the host in --agent");
  command->add_flag("--json", options.json, "one JSON document on the standard output");
  return command;
}

void add_pool(CLI::App* command, Options& options) {
  add_pool_options(command, options);
  command->add_option("--host", options.host, "id of the host that the sets are of; default: the agent's host");
}

void add_backup(CLI::App& app, Options& options) {
  CLI::App* const command =
      add_command(app, options, "backup", "Back directories up into a pool, and wait for the end");
  add_pool(command, options);
  command->add_option("--resource", options.resource, "id that the sets are kept under")->default_str(default_resource);
  command->add_option("--name", options.name, "name of the set; default: the last fixed part of the pattern");
  command->add_option("--channels", options.channels, "media written side by side")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  command->add_option("--compression", options.compression, "none, auto, lzop or zstd")
      ->check(CLI::IsMember({"none", "auto", "lzop", "zstd"}))
      ->capture_default_str();
  command->add_option("--level", options.level, "level of the compression")
      ->check(CLI::Range(1, 22))
      ->capture_default_str();
  command->add_flag("--incremental", options.incremental,
                    "read only what has changed since the sets with the number before; without them everything");
  command->add_option("--seq", options.seq, "sequence number of the sets; default: one more than the newest")
      ->check(CLI::Range(uint32_t(0), max_seq));
  command->add_option("PATTERN", options.patterns, "shell patterns, quoted; the first match of each is backed up")
      ->required();
}

void add_restore(CLI::App& app, Options& options) {
  CLI::App* const command = add_command(app, options, "restore", "Bring sets back, and wait for the end");
  add_pool(command, options);
  command->add_option("--resource", options.resource, "id that the sets are kept under")->default_str(default_resource);
  command->add_option("--channels", options.channels, "media read side by side")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  command->add_option("--seq", options.seq, "sequence number of the sets")
      ->check(CLI::Range(uint32_t(0), max_seq))
      ->required();
  command->add_option("--incarnation", options.incarnation, "of sets with the same number, which; 0: the newest")
      ->check(CLI::Range(uint32_t(0), max_seq))
      ->capture_default_str();
  command->add_option("NAME=TARGET", options.targets, "name of a set, and the directory that it goes to")->required();
}

void add_others(CLI::App& app, Options& options) {
  CLI::App* const jobs = add_command(app, options, "jobs", "List the agent's jobs, newest first");
  jobs->add_option("--limit", options.limit, "list at most so many; 0: all")->capture_default_str();

  CLI::App* const status = add_command(app, options, "status", "Show a job");
  status->add_option("JOB", options.job, "id of the job")->required();
  status->add_flag("--watch", options.watch, "follow it until it has ended");

  add_command(app, options, "cancel", "Ask the running job to stop");

  CLI::App* const size = add_command(app, options, "size", "Measure the first directory that a pattern matches");
  size->add_option("PATTERN", options.patterns, "shell pattern, quoted")->required()->expected(1);

  add_command(app, options, "info", "Show the agent");

  CLI::App* const dashboard =
      add_command(app, options, "dashboard", "Show the agent's status page to a browser on this machine, until ^C");
  dashboard->add_option("--port", options.port, "of 127.0.0.1; default: any that is free");
}

void add_secret(CLI::App& app, Options& options) {
  CLI::App* const secret = app.add_subcommand("secret", "Secrets in requests");
  secret->require_subcommand(1);
  CLI::App* const encrypt =
      secret->add_subcommand("encrypt", "Encipher the secret on the standard input for a host, and print it as base64");
  encrypt->callback([&options] { options.command = "secret encrypt"; });
  encrypt->add_option("--public-key", options.public_key, "PEM file with the host's RSA public key")->required();
  encrypt->add_flag("--json", options.json, "one JSON document on the standard output");
}

}  // namespace

bool parse_options(int argc, const char* const* argv, Options& options, int& exit_code, std::ostream& out,
                   std::ostream& err) {
  CLI::App app("Backs directories up and restores them through the agent of this machine, and shows the cluster.",
               "tessarinctl");
  app.set_version_flag("--version", TESSARIN_VERSION);
  app.require_subcommand(1);
  app.footer(footer);
  options.agent = from_environment("TESSARIN_AGENT", default_agent);
  options.token_file = from_environment("TESSARIN_TOKEN_FILE");
  options.ca_file = from_environment("TESSARIN_CA");
  options.agent_name = from_environment("TESSARIN_AGENT_NAME");
  options.pool = from_environment("TESSARIN_POOL");
  add_backup(app, options);
  add_restore(app, options);
  add_others(app, options);
  add_secret(app, options);
  add_sets_commands(app, options);
  add_cluster_commands(app, options);
  try {
    app.parse(reversed_arguments(argc, argv));
  } catch (const CLI::ParseError& e) {
    exit_code = app.exit(e, out, err) == 0 ? exit_ok : exit_usage;
    return false;
  }
  const bool one_resource = options.command == "backup" || options.command == "restore";
  if (one_resource && options.resource.empty()) options.resource = default_resource;
  return true;
}

}  // namespace ctl
