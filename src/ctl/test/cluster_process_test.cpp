// tessarinctl as a process outside of the cluster, which is a process too.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "support/temp_dir.h"

namespace {

using test_support::read_file;
using test_support::Temp_Dir;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// kube-sim, which ends with its input's shell.
class Simulated_Cluster {
 public:
  explicit Simulated_Cluster(const Temp_Dir& dir, const std::string& options = "")
      : output_(popen(("echo $$; exec '" KUBE_SIM_PROGRAM "' --state '" + dir.path() + "' " + options).c_str(), "r")) {
    char line[1024] = {};
    if (std::fgets(line, sizeof line, output_) != nullptr) process_ = std::atoi(line);
    if (std::fgets(line, sizeof line, output_) == nullptr) return;
    const std::string text = line, name = "KUBERNETES_SERVICE_PORT=";
    port_ = std::atoi(text.c_str() + text.find(name) + name.size());
  }
  ~Simulated_Cluster() {
    if (process_ > 0) {
      kill(process_, SIGTERM);
      kill(process_, SIGCONT);  // a test may have left it stopped
    }
    pclose(output_);
  }
  std::string url(const std::string& host = "127.0.0.1") const {
    return "https://" + host + ":" + std::to_string(port_);
  }
  pid_t process() const { return process_; }
  /// 0: it could not listen.
  int port() const { return port_; }

 private:
  FILE* const output_;
  pid_t process_ = -1;
  int port_ = 0;
};

/// What a process printed before it ended with a code, or -1 for a signal.
struct Output {
  int code;
  std::string out;
  std::string err;
};

class Cluster_Process : public ::testing::Test {
 protected:
  explicit Cluster_Process(const std::string& sim_options = "") : sim(dir, sim_options) {
    std::filesystem::permissions(dir.path(), std::filesystem::perms(0755));
  }

  /// @param before  what the command line begins with.
  Output run(const std::string& arguments, const std::string& before = "") const {
    const std::string command =
        before + " '" CTL_PROGRAM "' " + arguments + " >'" + (dir / "out") + "' 2>'" + (dir / "err") + "'";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(dir / "out"), read_file(dir / "err")};
  }
  std::string access(const std::string& host = "127.0.0.1") const {
    return " --server " + sim.url(host) + " --token-file '" + (dir / "token") + "' --ca '" + (dir / "ca.crt") + "'";
  }

  const Temp_Dir dir;
  const Simulated_Cluster sim;
};

TEST_F(Cluster_Process, Cluster_is_seen_from_outside) {
  const Output nodes = run("cluster nodes" + access());
  EXPECT_EQ(nodes.code, 0);
  EXPECT_THAT(nodes.out, HasSubstr("node-1"));
  EXPECT_THAT(nodes.err, IsEmpty());
  EXPECT_FALSE(std::filesystem::exists("/var/run/secrets/kubernetes.io")) << "the token is seen by others";
}

TEST_F(Cluster_Process, Failure_is_one_line_and_more_with_verbose) {
  const Output failure = run("pvc clone gone" + access());
  EXPECT_EQ(failure.code, 4);
  EXPECT_EQ(failure.err, "tessarinctl: The claim 'gone' cannot be cloned: the server answered 404 (not found).\n");
  const Output verbose = run("pvc clone gone --verbose" + access());
  EXPECT_EQ(verbose.code, 4);
  EXPECT_THAT(verbose.err, HasSubstr("Failed to create PVC clone"));
}

TEST_F(Cluster_Process, Files_have_to_be_there) {
  const Output failure =
      run("cluster nodes --server " + sim.url() + " --token-file /nowhere --ca '" + (dir / "ca.crt") + "'");
  EXPECT_EQ(failure.code, 2);
  EXPECT_EQ(failure.err, "tessarinctl: '/nowhere' cannot be read.\n");
}

TEST_F(Cluster_Process, Server_without_TLS_is_refused) {
  const Output failure =
      run("cluster nodes --server http://h --token-file '" + (dir / "token") + "' --ca '" + (dir / "ca.crt") + "'");
  EXPECT_EQ(failure.code, 2);
  EXPECT_EQ(failure.err, "tessarinctl: --server is no https://HOST:PORT: http://h\n");
}

/// An ordinary user has to be able to come to the program and the files.
TEST_F(Cluster_Process, Ordinary_user_sees_the_cluster_too) {
  const std::string as_user = "setpriv --reuid=65534 --regid=65534 --clear-groups ";
  std::filesystem::permissions(dir / "token", std::filesystem::perms(0644));
  std::filesystem::permissions(dir / "ca.crt", std::filesystem::perms(0644));
  if (std::system((as_user + "test -x '" CTL_PROGRAM "' 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "there is no other user here, or the program lies where he cannot run it";
  if (std::system((as_user + "unshare -Urm true 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "this machine forbids user namespaces to ordinary users";
  const Output nodes = run("cluster nodes" + access(), as_user);
  EXPECT_EQ(nodes.code, 0) << nodes.err;
  EXPECT_THAT(nodes.out, HasSubstr("node-1"));
}

class Cluster_Process_IPv6 : public Cluster_Process {
 protected:
  Cluster_Process_IPv6() : Cluster_Process("--listen ::1 --pods 1") {}
};

TEST_F(Cluster_Process_IPv6, Server_has_an_address_in_brackets) {
  if (sim.port() == 0) GTEST_SKIP() << "this machine has no IPv6";
  const Output nodes = run("cluster nodes" + access("'[::1]'"));
  EXPECT_EQ(nodes.code, 0) << nodes.err;
  EXPECT_THAT(nodes.out, HasSubstr("node-1"));
  const Output echo = run("exec pod-0 -n bench-0" + access("'[::1]'") + " -- echo said");
  EXPECT_EQ(echo.code, 0) << echo.err;
  EXPECT_EQ(echo.out, "said\n");
}

/// Claims of the class "standard" are never bound.
class Experiment_Process : public Cluster_Process {
 protected:
  Experiment_Process() : Cluster_Process("--stuck-class standard") {
    dir.write("classes.json", R"({"csi": ["standard", "late"]})");
  }

  std::string arguments(const std::string& timeout) const {
    return "sc check -n default --timeout " + timeout + " --file '" + (dir / "classes.json") + "'" + access();
  }
  /// Starts the check with a terminal, or without.
  pid_t start(bool terminal) {
    dir.write("check-err", "");
    const std::string command = "exec '" CTL_PROGRAM "' " + arguments("600") +
                                (terminal ? "" : " >'" + (dir / "check-out") + "' 2>'" + (dir / "check-err") + "'");
    const pid_t process = terminal ? forkpty(&terminal_, nullptr, nullptr, nullptr) : fork();
    if (process == 0) {
      execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
      _exit(127);
    }
    return process;
  }
  void await(const std::string& text) const {
    for (int i = 0; i < 600 && read_file(dir / "check-err").find(text) == std::string::npos; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_THAT(read_file(dir / "check-err"), HasSubstr(text));
  }
  /// Until the claims of both classes are made.
  void await_claims() const {
    for (const char* name : {"standard", "late"}) await(std::string(name) + ": claim pending, clone pending\n");
  }
  static int end_of(pid_t process) {
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string objects_of_ours() const { return run("clean default --dry-run" + access()).out; }
  size_t classes() const {
    const std::string out = run("sc show" + access()).out;
    return static_cast<size_t>(std::count(out.begin(), out.end(), '\n')) - 1;
  }

  int terminal_ = -1;
};

TEST_F(Experiment_Process, Interrupt_ends_it_and_leaves_nothing) {
  const pid_t process = start(false);
  await_claims();
  EXPECT_THAT(objects_of_ours(), HasSubstr("claim"));
  EXPECT_EQ(classes(), 3u) << "the copy of 'late' is there";
  kill(process, SIGINT);
  EXPECT_EQ(end_of(process), 1);
  EXPECT_THAT(read_file(dir / "check-err"),
              AllOf(HasSubstr("\nInterrupted: what was made is being removed. Interrupt again to leave it.\n"),
                    EndsWith("tessarinctl: Interrupted. Nothing was published, and nothing is left behind.\n")));
  EXPECT_THAT(read_file(dir / "check-out"), IsEmpty());
  EXPECT_EQ(objects_of_ours(), "KIND  NAME\n");
  EXPECT_EQ(classes(), 2u);
  EXPECT_THAT(run("sc show -n default" + access()).out, Not(HasSubstr("csi "))) << "something was published";
}

TEST_F(Experiment_Process, Second_interrupt_leaves_it_at_once_and_tells_how_to_clean) {
  const pid_t process = start(false);
  await_claims();
  kill(sim.process(), SIGSTOP);  // the removal hangs
  kill(process, SIGTERM);
  await("Interrupted:");
  kill(process, SIGTERM);
  EXPECT_EQ(end_of(process), 130);
  kill(sim.process(), SIGCONT);
  const std::string err = read_file(dir / "check-err");
  EXPECT_THAT(err, HasSubstr("Temporary claims and snapshots may be left in namespace default.\n"
                             "'tessarinctl clean default --dry-run' lists them, with --yes it removes them.\n"));
  EXPECT_THAT(err, ContainsRegex("kubectl delete storageclass [a-z]{8}\n$"));
  EXPECT_THAT(objects_of_ours(), HasSubstr("claim"));
  EXPECT_EQ(run("clean default --yes" + access()).code, 0);
  EXPECT_EQ(objects_of_ours(), "KIND  NAME\n");
}

TEST_F(Experiment_Process, Table_is_drawn_in_its_place_on_a_terminal) {
  dir.write("classes.json", R"({"csi": ["late"]})");
  const pid_t process = start(true);
  if (process < 0) GTEST_SKIP() << "this machine has no pseudo-terminals";
  std::string shown;
  char buffer[4096];
  for (ssize_t n; (n = read(terminal_, buffer, sizeof buffer)) > 0;) shown.append(buffer, static_cast<size_t>(n));
  EXPECT_EQ(end_of(process), 0) << shown;
  close(terminal_);
  EXPECT_THAT(shown, HasSubstr("Making claims and clones  0:00\r\nCLASS  CLAIM"));
  EXPECT_THAT(shown, HasSubstr("\033[3A\033[J"));
  // What stays on the screen.
  const std::string last = shown.substr(shown.rfind("\033[J") + 3);
  EXPECT_EQ(last, "CLASS  TYPE  CLONE  SNAPSHOT  NOTE\r\nlate   csi   yes    yes       -\r\n");
}

}  // namespace
