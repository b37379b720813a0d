#include "ctl/sets/sets_options.h"

#include <CLI/CLI.hpp>

#include "ctl/options.h"

namespace ctl {

namespace {

constexpr char set_help[] = "NAME, NAME:SEQ, NAME:SEQ.INCARNATION or NAME/SEQ.INCARNATION; without numbers: the newest";

void add_pool(CLI::App* command, Options& options) {
  add_pool_options(command, options);
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

void add_changes(CLI::App* group, Options& options) {
  Sets_Options& sets = options.sets;
  CLI::App* const remove = add_command(group, options, "remove", "sets remove", "Remove sets");
  remove->add_option("SET", sets.sets, set_help)->required();
  remove->add_flag("--with-dependents", sets.with_dependents, "and all sets that have data in them");
  remove->add_flag("--dry-run", sets.dry_run, "only tell what would be removed");

  CLI::App* const prune =
      add_command(group, options, "prune", "sets prune", "Remove sets by rules; tells unless --yes");
  prune->add_option("--keep-last", sets.keep.last, "keep so many of the newest sets of each name");
  prune->add_option("--keep-daily", sets.keep.daily, "keep the newest set of each of so many days that have one");
  prune->add_option("--keep-weekly", sets.keep.weekly, "keep the newest set of each of so many weeks that have one");
  prune->add_option("--name", sets.name, "only sets of this name");
  prune->add_flag("--yes", sets.yes, "do it");

  for (CLI::App* const command : {remove, prune})
    command->add_flag("--ignore-damaged", sets.ignore_damaged,
                      "go on beside sets whose records cannot be read, so that it is not known what they need");
}

}  // namespace

void add_pool_options(CLI::App* command, Options& options) {
  // An empty one may be a variable that was not set: another pool is none that was meant.
  const CLI::Validator not_empty([](std::string& text) { return text.empty() ? "it is empty" : ""; }, "");
  CLI::Option* const url =
      command
          ->add_option("--pool", options.pool,
                       "URL of the storage pool, or a directory; default: TESSARIN_POOL, or the agent's pool")
          ->check(not_empty);
  command
      ->add_option("--pool-file", options.pool_file,
                   "JSON file that describes the pool: url, and for some pools credentials, cipher and key")
      ->check(not_empty)
      ->excludes(url);
}

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

  CLI::App* const verify =
      add_command(group, options, "verify", "sets verify", "Compare sets with what was written down about them");
  verify->add_option("SET", sets.sets, "these sets only; default: all");
  verify->add_flag("--data", sets.data, "read all data too");

  CLI::App* const restore =
      add_command(group, options, "restore", "sets restore", "Bring files of a set back, straight from the pool");
  add_set(restore, sets);
  restore
      ->add_option("--path", sets.paths,
                   "a file or directory in the set, as of \"show\"; may be repeated; default: all")
      ->expected(1)
      ->take_all();
  restore->add_option("--to", sets.target, "directory in which each is put under its own name")->required();

  CLI::App* const exported =
      add_command(group, options, "export", "sets export", "Write a set as one file that other programs read");
  add_set(exported, sets);
  exported->add_option("FILE", sets.file, "the file, which must not exist; -: the standard output")->required();
  exported->add_option("--format", sets.format, "tar (pax) or mtf (one MTF medium)")
      ->required()
      ->check(CLI::IsMember({"tar", "mtf"}));

  add_changes(group, options);
}

}  // namespace ctl
