// kube-sim: a simulated cluster as a process.
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "http/host_in_url.h"
#include "support/kube_sim/cluster_api.h"
#include "support/kube_sim/controllers.h"
#include "support/kube_sim/preload.h"
#include "support/kube_sim/program_options.h"

namespace fs = std::filesystem;
using namespace kube_sim;

namespace {

constexpr char driver[] = "csi.kube-sim.example.com";

/// All that is written is for the owner's eyes: a token is in it.
void write(const fs::path& path, const std::string& content) {
  fs::create_directories(path.parent_path());
  std::ofstream file(path);
  file << content;
  if (!file.flush()) throw std::runtime_error("can't write " + path.string());
}

std::string kubeconfig(const std::string& url, const fs::path& ca, const std::string& token) {
  return "apiVersion: v1\n"
         "kind: Config\n"
         "clusters:\n"
         "- name: kube-sim\n"
         "  cluster:\n"
         "    server: " +
         url +
         "\n"
         "    certificate-authority: " +
         ca.string() +
         "\n"
         "users:\n"
         "- name: kube-sim\n"
         "  user:\n"
         "    token: " +
         token +
         "\n"
         "contexts:\n"
         "- name: kube-sim\n"
         "  context:\n"
         "    cluster: kube-sim\n"
         "    user: kube-sim\n"
         "current-context: kube-sim\n";
}

/// What a cluster has beside the objects of the user.
void furnish(Cluster& cluster, const Program_Options& options) {
  if (!options.objects_file.empty()) {
    json_spirit::Value document;
    if (!json_spirit::load_json(options.objects_file.c_str(), document, json_spirit::LOAD_STRICT))
      throw std::runtime_error(options.objects_file + " is no JSON");
    preload(cluster, document);
  }
  if (cluster.list("", "nodes").empty())
    for (size_t i = 1; i <= options.nodes; ++i) add_node(cluster, "node-" + std::to_string(i));
  if (cluster.list("storage.k8s.io", "storageclasses").empty()) {
    add_storage_class(cluster, "standard", driver, "Immediate", true);
    add_storage_class(cluster, "late", driver, "WaitForFirstConsumer");
  }
  if (options.cluster.snapshots && cluster.list("snapshot.storage.k8s.io", "volumesnapshotclasses").empty())
    add_snapshot_class(cluster, "snapshots", driver);
  preload_pods(cluster, options.pods);
}

int serve(const Program_Options& options, const sigset_t& ends) {
  const fs::path state = fs::absolute(options.state_directory);
  Cluster cluster(options.cluster);
  furnish(cluster, options);
  const Controllers controllers(cluster, options.behaviour);
  Cluster_Api api(cluster, state / "containers");
  const Front front(api, options.front);

  const std::string port = std::to_string(front.port()), &token = options.cluster.token;
  const std::string host = options.front.address == "0.0.0.0" ? "127.0.0.1" : options.front.address;
  write(state / "ca.crt", front.ca());
  write(state / "token", token);
  write(state / "kubeconfig", kubeconfig("https://" + host_in_url(host) + ":" + port, state / "ca.crt", token));
  if (!options.service_account_directory.empty()) {
    const fs::path directory = options.service_account_directory;
    write(directory / "ca.crt", front.ca());
    write(directory / "token", token);
    write(directory / "namespace", "default");
  }
  std::printf("export KUBECONFIG=%s KUBERNETES_SERVICE_HOST=%s KUBERNETES_SERVICE_PORT=%s\n",
              (state / "kubeconfig").c_str(), host.c_str(), port.c_str());
  std::fflush(stdout);
  int signal = 0;
  sigwait(&ends, &signal);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Program_Options options;
  options.front.record = false;
  const int exit_code = parse(argc, argv, options);
  if (exit_code >= 0) return exit_code;
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  umask(077);
  try {
    return serve(options, ends);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kube-sim: %s\n", error.what());
    return 1;
  }
}
