// What one listing of all workloads costs in a large cluster: requests, connections, time, and the caller's memory.
//
// The cluster is simulated, in a process of its own, behind TLS on loopback. Run it by bench/kube/with_private_run,
// which gives it a private /run for the service account.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "json_spirit/json_spirit_value.h"
#include "k8s/api/k8s_cluster.h"
#include "k8s/api/k8s_workload_factory.h"
#include "kolt/make_shared_nothrow.h"
#include "kolt/string_sprintf.h"
#include "support/kube_sim/cluster.h"
#include "support/kube_sim/front.h"
#include "support/kube_sim/service_account.h"

namespace {

constexpr int namespaces = 200;

[[noreturn]] void give_up(const char* what) {
  std::perror(what);
  std::exit(1);
}

template <typename T>
void send(int fd, const T& value) {
  if (write(fd, &value, sizeof value) != sizeof value) give_up("write");
}
template <typename T>
T receive(int fd) {
  T value;
  if (read(fd, &value, sizeof value) != sizeof value) give_up("read");
  return value;
}

/// 25 workloads in each namespace, of which 17 have an owner that stands for them.
class Filled_Cluster {
 public:
  Filled_Cluster() {
    for (int i = 0; i < namespaces; ++i) fill("shop-" + std::to_string(i));
  }
  static constexpr int workloads = 25 * namespaces, owned = 17 * namespaces;

  kube_sim::Cluster cluster;

 private:
  void create(const char* group, const char* resource, const char* head, const std::string& metadata,
              const std::string& spec) {
    json_spirit::Value document;
    json_spirit::loads_json(
        std::string_view(std::string("{") + head + R"(,"metadata":{)" + metadata + R"(},"spec":{)" + spec + "}}"),
        document);
    if (!cluster.create(group, resource, std::move(document.get_obj()))) give_up(resource);
  }

  void fill(const std::string& ns) {
    create("", "namespaces", R"("kind":"Namespace","apiVersion":"v1")", R"("name":")" + ns + '"', "");
    const auto metadata = [&ns](const std::string& name, const char* owner_kind = nullptr,
                                const std::string& owner = "") {
      std::string text = R"("name":")" + name + R"(","namespace":")" + ns + R"(","labels":{"app":"a","hash":"h"})";
      if (owner_kind)
        text += string_sprintf(R"(,"ownerReferences":[{"apiVersion":"apps/v1","kind":"%s","name":"%s","uid":"u"}])",
                               owner_kind, owner.c_str());
      return text;
    };
    const std::string selector = R"("selector":{"matchLabels":{"app":"a"}})";
    const std::string containers = R"("containers":[{"name":"c","image":"i"}])";
    const auto apps = [&](const char* resource, const char* head, const std::string& meta) {
      create("apps", resource, head, meta, selector + R"(,"template":{"spec":{)" + containers + "}}");
    };
    const char pod[] = R"("kind":"Pod","apiVersion":"v1")";
    for (int i = 0; i < 5; ++i) {
      const std::string name = "web-" + std::to_string(i);
      apps("deployments", R"("kind":"Deployment","apiVersion":"apps/v1")", metadata(name));
      apps("replicasets", R"("kind":"ReplicaSet","apiVersion":"apps/v1")", metadata(name + "-r", "Deployment", name));
      for (const char* end : {"-a", "-b"})
        create("", "pods", pod, metadata(name + end, "ReplicaSet", name + "-r"), containers);
    }
    apps("statefulsets", R"("kind":"StatefulSet","apiVersion":"apps/v1")", metadata("db"));
    create("", "pods", pod, metadata("db-0", "StatefulSet", "db"), containers);
    apps("daemonsets", R"("kind":"DaemonSet","apiVersion":"apps/v1")", metadata("log"));
    create("", "pods", pod, metadata("log-x", "DaemonSet", "log"), containers);
    create("", "pods", pod, metadata("bare"), containers);
  }
};

struct Served {
  std::size_t requests;
  std::size_t connections;
};

/// The server's process: tells its port, and what it has served when it is asked.
[[noreturn]] void serve(int from_client, int to_client) {
  Filled_Cluster filled;
  kube_sim::Front front(filled.cluster);
  const kube_sim::Service_Account account(front, kube_sim::Cluster_Options().token);
  send(to_client, front.port());
  for (char question; read(from_client, &question, 1) == 1;)
    send(to_client, Served{front.requests().size(), front.connections()});
  _exit(0);
}

long peak_kib() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

}  // namespace

int main() {
  int to_server[2], to_client[2];
  if (pipe(to_server) != 0 || pipe(to_client) != 0) give_up("pipe");
  const pid_t server = fork();
  if (server == 0) {
    close(to_server[1]);
    serve(to_server[0], to_client[1]);
  }
  const auto served = [&] {
    send(to_server[1], '?');
    return receive<Served>(to_client[0]);
  };

  setenv("KUBERNETES_SERVICE_HOST", "127.0.0.1", 1);
  setenv("KUBERNETES_SERVICE_PORT", std::to_string(receive<unsigned short>(to_client[0])).c_str(), 1);
  K8S_Cluster::instance()->get_resource_gv("cronjobs") = "batch/v1";

  K8S_Workload_Helper helper(make_shared_nothrow<K8S_Client>());
  json_spirit::Array workloads;
  const Served before = served();
  const long peak_before = peak_kib();
  const auto start = std::chrono::steady_clock::now();
  const bool good = helper.list_workload_objects(workloads, nullptr, nullptr);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const long peak_after = peak_kib();
  const Served after = served();
  close(to_server[1]);
  waitpid(server, nullptr, 0);

  std::printf("%d workloads in %d namespaces, %d of them with an owner\n", Filled_Cluster::workloads, namespaces,
              Filled_Cluster::owned);
  std::printf("listed        %zu\n", workloads.size());
  std::printf("requests      %zu (lists 7, owners %zu)\n", after.requests - before.requests,
              after.requests - before.requests - 7);
  std::printf("connections   %zu\n", after.connections - before.connections);
  std::printf("seconds       %.2f (%.0f requests/s)\n", seconds,
              static_cast<double>(after.requests - before.requests) / seconds);
  std::printf("peak memory   %.1f MiB, %.1f MiB before\n", static_cast<double>(peak_after) / 1024,
              static_cast<double>(peak_before) / 1024);
  K8S_Cluster::close_instance();
  return good && workloads.size() == std::size_t{Filled_Cluster::workloads - Filled_Cluster::owned} ? 0 : 1;
}
