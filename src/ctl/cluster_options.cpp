#include "ctl/cluster_options.h"

#include <CLI/CLI.hpp>

#include "ctl/options.h"
#include "ctl/storage_class_file.h"

namespace ctl {

namespace {

constexpr char default_namespace[] = "default";

/// @param full_name  what Options::command becomes.
CLI::App* add_command(CLI::App& parent, Options& options, const char* name, const char* full_name, const char* text) {
  Cluster_Options& cluster = options.cluster;
  CLI::App* const command = parent.add_subcommand(name, text);
  command->callback([&options, full_name] {
    options.command = full_name;
    options.cluster.asked = true;
  });
  CLI::Option* const server =
      command->add_option("--server", cluster.server, "https://HOST:PORT of the API server; default: that of this pod");
  CLI::Option* const token =
      command->add_option("--token-file", cluster.token_file, "file with the token for --server");
  CLI::Option* const ca =
      command->add_option("--ca", cluster.ca_file, "PEM file that vouches for the certificate of --server");
  server->needs(token)->needs(ca);
  token->needs(server);
  ca->needs(server);
  command->add_flag("--verbose", cluster.verbose, "the log of the library on the standard error");
  command->add_flag("--json", options.json, "one JSON document on the standard output");
  return command;
}

void add_namespace(CLI::App* command, Cluster_Options& cluster, const char* otherwise) {
  command->add_option("-n,--namespace", cluster.ns, std::string("namespace; default: ") + otherwise);
}

void add_search(CLI::App* command, Cluster_Options& cluster) {
  command->add_option("--search", cluster.search, "only names that hold this text, in whatever case");
}

void add_cluster(CLI::App& app, Options& options) {
  Cluster_Options& cluster = options.cluster;
  CLI::App* const group = app.add_subcommand("cluster", "What there is in the cluster");
  group->require_subcommand(1);
  add_command(*group, options, "info", "cluster info", "Version, snapshots, nodes, agents");
  add_search(add_command(*group, options, "namespaces", "cluster namespaces", "Namespaces that can be backed up"),
             cluster);
  CLI::App* const workloads =
      add_command(*group, options, "workloads", "cluster workloads", "Workloads that can be backed up");
  add_namespace(workloads, cluster, "all");
  add_search(workloads, cluster);
  add_command(*group, options, "nodes", "cluster nodes", "Nodes");
  add_command(*group, options, "aux", "cluster aux", "Nodes with a running auxiliary agent");
}

void add_pvc(CLI::App& app, Options& options) {
  Cluster_Options& cluster = options.cluster;
  CLI::App* const group = app.add_subcommand("pvc", "Persistent volume claims");
  group->require_subcommand(1);
  add_namespace(add_command(*group, options, "list", "pvc list", "List claims"), cluster, default_namespace);
  CLI::App* const size = add_command(*group, options, "size", "pvc size", "Measure the data of a claim");
  CLI::App* const clone = add_command(*group, options, "clone", "pvc clone", "Make a copy of a claim");
  CLI::App* const snapshot = add_command(*group, options, "snapshot", "pvc snapshot", "Make a snapshot of a claim");
  for (CLI::App* const command : {size, clone, snapshot}) {
    add_namespace(command, cluster, default_namespace);
    command->add_option("CLAIM", cluster.name, "name of the claim")->required();
  }
  for (CLI::App* const command : {clone, snapshot}) {
    command->add_option("--as", cluster.copy, "name of the copy; default: CLAIM-tessarin");
    command->add_flag("--wait", cluster.wait, "wait until it can be used");
  }
}

void add_others(CLI::App& app, Options& options) {
  Cluster_Options& cluster = options.cluster;
  CLI::App* const sc = app.add_subcommand("sc", "Storage classes");
  sc->require_subcommand(1);
  add_namespace(add_command(*sc, options, "show", "sc show", "Storage classes and what they were found able to do"),
                cluster, "CURRENT_NAMESPACE");

  CLI::App* const check =
      add_command(*sc, options, "check", "sc check", "Try out what storage classes can do, and publish it");
  add_namespace(check, cluster, "CURRENT_NAMESPACE");
  check->add_option("--file", cluster.file,
                    std::string("JSON file that names the classes by type; default: ") + storage_class_file);
  check->add_option("--timeout", cluster.timeout, "seconds that the experiment may wait in all")
      ->check(CLI::Range(3, 86400))
      ->capture_default_str();

  CLI::App* const entries = app.add_subcommand("entries", "Selections of what is backed up");
  entries->require_subcommand(1);
  add_command(*entries, options, "check", "entries check", "What a selection comes to, and what of it is missing")
      ->add_option("FILE", cluster.file, "JSON: array of objects with type, name and namespace")
      ->required();

  CLI::App* const exec = add_command(app, options, "exec", "exec", "Run a command in a container");
  add_namespace(exec, cluster, default_namespace);
  exec->add_option("-c,--container", cluster.container, "container; needed in a pod of several");
  exec->add_option("POD", cluster.name, "name of the pod")->required();
  exec->add_option("COMMAND", cluster.words, "program and arguments, behind --")->required();

  CLI::App* const clean = add_command(app, options, "clean", "clean", "Remove what the agent left in a namespace");
  clean->add_option("NAMESPACE", cluster.name, "the namespace")->required();
  CLI::Option* const dry_run = clean->add_flag("--dry-run", cluster.dry_run, "only list it");
  clean->add_flag("--yes", cluster.yes, "do it")->excludes(dry_run);
}

}  // namespace

std::string namespace_or_default(const Cluster_Options& options) {
  return options.ns.empty() ? default_namespace : options.ns;
}

void add_cluster_commands(CLI::App& app, Options& options) {
  add_cluster(app, options);
  add_pvc(app, options);
  add_others(app, options);
}

}  // namespace ctl
