#include "ctl/sets/sets_options.h"

#include <CLI/CLI.hpp>

#include "ctl/options.h"

namespace ctl {

namespace {

constexpr char set_help[] = "NAME, NAME:SEQ, NAME:SEQ.INCARNATION or NAME/SEQ.INCARNATION; without numbers: the newest";

void add_pool(CLI::App* command, Options& options) {
  command->add_option("--pool", options.pool,
                      "URL of the storage pool, or a directory; default: TESSARIN_POOL, or the agent's pool");
  command->add_option("--pool-file", options.sets.pool_file,
                      "JSON file that describes the pool: url, and for some pools credentials, cipher and key");
  command->add_option("--host", options.host, "only sets of this host");
  command->add_option("--resource", options.resource, "only sets under this id");
  command->add_option("--agent", options.agent, "the agent that tells its pool where none is given");
  command->add_option("--token-file", options.token_file, "file with the token that the agent asks for");
  command->add_flag("--json", options.json, "one JSON document on the standard output");
}

/// @param full_name  what Options::command becomes.
CLI::App* add_command(CLI::App* parent, Options& options, const char* name, const char* full_name, const char* text) {
  CLI::App* const command = parent->add_subcommand(name, text);
  command->callback([&options, full_name] { options.command = full_name; });
  add_pool(command, options);
  return command;
}

/// The one set that a command is about.
void add_set(CLI::App* command, Sets_Options& sets) {
  command
      ->add_option_function<std::string>(
          "SET", [&sets](const std::string& set) { sets.sets = {set}; }, set_help)
      ->required();
}

}  // namespace

void add_sets_commands(CLI::App& app, Options& options) {
  Sets_Options& sets = options.sets;
  CLI::App* const group = app.add_subcommand("sets", "The sets in a pool; alone: lists them");
  group->require_subcommand(0, 1);
  add_pool(group, options);
  group->callback([&options, group] {
    options.sets.asked = true;
    if (group->get_subcommands().empty()) options.command = "sets list";
  });

  add_command(group, options, "list", "sets list", "List the sets");

  CLI::App* const show = add_command(group, options, "show", "sets show", "Show a set, or what is in it at a path");
  add_set(show, sets);
  show->add_option("PATH", sets.path, "a directory or file in the set; without a '/' in front: below its source");

  CLI::App* const find = add_command(group, options, "find", "sets find", "Find files in sets by their names");
  find->add_option("PATTERN", sets.pattern, "shell pattern, quoted, of a name, or of a whole path if it has a '/'")
      ->required();
  find->add_option("SET", sets.sets, "in these sets only; default: in all");
}

}  // namespace ctl
