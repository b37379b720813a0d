// tessarinctl as a process outside of the cluster, which is a process too.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>

#include "support/temp_dir.h"

namespace {

using test_support::read_file;
using test_support::Temp_Dir;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// kube-sim, which ends with its input's shell.
class Simulated_Cluster {
 public:
  explicit Simulated_Cluster(const Temp_Dir& dir)
      : output_(popen(("echo $$; exec '" KUBE_SIM_PROGRAM "' --state '" + dir.path() + "'").c_str(), "r")) {
    char line[1024] = {};
    if (std::fgets(line, sizeof line, output_) != nullptr) process_ = std::atoi(line);
    if (std::fgets(line, sizeof line, output_) == nullptr) return;
    const std::string text = line, name = "KUBERNETES_SERVICE_PORT=";
    port_ = std::atoi(text.c_str() + text.find(name) + name.size());
  }
  ~Simulated_Cluster() {
    if (process_ > 0) kill(process_, SIGTERM);
    pclose(output_);
  }
  std::string url() const { return "https://127.0.0.1:" + std::to_string(port_); }

 private:
  FILE* const output_;
  pid_t process_ = -1;
  int port_ = 0;
};

class Cluster_Process : public ::testing::Test {
 protected:
  int run(const std::string& arguments) {
    FILE* const pipe = popen(("'" CTL_PROGRAM "' " + arguments + " 2>'" + (dir / "err") + "'").c_str(), "r");
    out.clear();
    for (int c; (c = std::fgetc(pipe)) != EOF;) out += static_cast<char>(c);
    const int status = pclose(pipe);
    err = read_file(dir / "err");
    return WEXITSTATUS(status);
  }
  std::string access() const {
    return " --server " + sim.url() + " --token-file '" + (dir / "token") + "' --ca '" + (dir / "ca.crt") + "'";
  }

  const Temp_Dir dir;
  const Simulated_Cluster sim{dir};
  std::string out;
  std::string err;
};

TEST_F(Cluster_Process, Cluster_is_seen_from_outside) {
  EXPECT_EQ(run("cluster nodes" + access()), 0) << err;
  EXPECT_THAT(out, HasSubstr("node-1"));
  EXPECT_THAT(err, IsEmpty());
  EXPECT_FALSE(std::filesystem::exists("/var/run/secrets/kubernetes.io")) << "the token is seen by others";
}

TEST_F(Cluster_Process, Failure_is_one_line_and_more_with_verbose) {
  EXPECT_EQ(run("pvc clone gone" + access()), 4);
  EXPECT_EQ(err, "tessarinctl: The claim 'gone' cannot be cloned: the server answered 404.\n");
  EXPECT_EQ(run("pvc clone gone --verbose" + access()), 4);
  EXPECT_THAT(err, HasSubstr("Failed to create PVC clone"));
}

TEST_F(Cluster_Process, Files_have_to_be_there) {
  EXPECT_EQ(run("cluster nodes --server " + sim.url() + " --token-file /nowhere --ca '" + (dir / "ca.crt") + "'"), 2);
  EXPECT_EQ(err, "tessarinctl: '/nowhere' cannot be read.\n");
}

TEST_F(Cluster_Process, Server_without_TLS_is_refused) {
  EXPECT_EQ(
      run("cluster nodes --server http://h --token-file '" + (dir / "token") + "' --ca '" + (dir / "ca.crt") + "'"), 2);
  EXPECT_EQ(err, "tessarinctl: --server is no https://HOST:PORT: http://h\n");
}

}  // namespace
