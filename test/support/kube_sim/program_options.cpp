#include "support/kube_sim/program_options.h"

#include <CLI/CLI.hpp>

namespace kube_sim {

namespace {

void add_delay(CLI::App& app, const char* name, std::chrono::milliseconds& delay, const char* text) {
  const auto store = [&delay](const long& number) { delay = std::chrono::milliseconds(number); };
  app.add_option_function<long>(name, store, text)->check(CLI::NonNegativeNumber)->type_name("MS");
}

void add_behaviour(CLI::App& app, Behaviour& behaviour) {
  add_delay(app, "--bind-delay", behaviour.bind_delay, "How long a claim takes to be bound");
  add_delay(app, "--snapshot-delay", behaviour.snapshot_delay, "How long a snapshot takes to become ready");
  add_delay(app, "--start-delay", behaviour.start_delay, "How long a pod takes to start");
  add_delay(app, "--stop-delay", behaviour.stop_delay, "How long a deleted pod takes to stop");
  app.add_option("--stuck-class", behaviour.stuck_classes, "Storage classes whose claims are never bound");
  app.add_option("--no-clones", behaviour.classes_without_clones, "Storage classes that refuse to clone a claim");
  app.add_option("--stuck-snapshot-class", behaviour.stuck_snapshot_classes,
                 "Snapshot classes whose snapshots never become ready");
  app.add_option("--stuck-deletion", behaviour.stuck_deletions,
                 "Names of pods, claims and snapshots that stay in deletion");
}

}  // namespace

int parse(int argc, char** argv, Program_Options& options) {
  CLI::App app(
      "A simulated Kubernetes cluster: an API server with its controllers, without anything that really runs.");
  app.add_option("--listen", options.front.address, "Address to listen on")->capture_default_str();
  app.add_option("--port", options.front.port, "Port to listen on; 0 is any free one")->capture_default_str();
  app.add_option("--state", options.state_directory,
                 "Directory for ca.crt, token, kubeconfig and what containers write")
      ->capture_default_str();
  app.add_option("--serviceaccount", options.service_account_directory,
                 "Directory to write token, ca.crt and namespace to, as a pod finds them");
  app.add_option("--token", options.cluster.token, "Bearer token of the one user who may do everything")
      ->capture_default_str();
  app.add_option("--kubernetes-version", options.cluster.version, "Version to serve")->capture_default_str();
  app.add_flag("!--no-snapshots", options.cluster.snapshots, "Leave the API of volume snapshots out");
  app.add_option("--objects", options.objects_file, "JSON file of objects to begin with, a list or an array")
      ->check(CLI::ExistingFile);
  app.add_option("--nodes", options.nodes, "Nodes to begin with, unless the objects bring some")->capture_default_str();
  app.add_option("--pods", options.pods, "Running pods to make, each with a claim, for measurements")
      ->capture_default_str();
  add_behaviour(app, options.behaviour);
  try {
    app.parse(argc, argv);
    return -1;
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  }
}

}  // namespace kube_sim
