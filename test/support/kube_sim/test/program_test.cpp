// kube-sim as a process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "kolt/posix_fd.h"
#include "support/kube_sim/test/tls_peer.h"
#include "support/temp_dir.h"

using test_support::read_file;
using test_support::Temp_Dir;
using testing::HasSubstr;

namespace {

/// The program, run with its state in a directory of the test.
class Program {
 public:
  explicit Program(const Temp_Dir& dir, const std::vector<std::string>& more = {}) {
    std::vector<std::string> words = {KUBE_SIM_PROGRAM, "--state", dir / "state"};
    words.insert(words.end(), more.begin(), more.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const Posix_Fd write_end(ends[1]);
    output_.reset(ends[0]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, write_end.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, output_.get());
    EXPECT_EQ(posix_spawn(&process_, argv[0], &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
  }
  ~Program() {
    if (process_ > 0) stop(SIGKILL);
  }

  /// The first line that it prints, without its end; what there is when it ends before.
  std::string line() const {
    std::string text;
    for (char c; ::read(output_.get(), &c, 1) == 1 && c != '\n';) text += c;
    return text;
  }
  /// The exit code, or 128 and the signal.
  int stop(int signal) {
    if (signal != 0) kill(process_, signal);
    int status = 0;
    while (waitpid(process_, &status, 0) < 0 && errno == EINTR) continue;
    process_ = -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  }

 private:
  pid_t process_ = -1;
  Posix_Fd output_;
};

unsigned short port_in(const std::string& line) {
  const std::string name = "KUBERNETES_SERVICE_PORT=";
  const size_t found = line.find(name);
  return found == line.npos ? 0 : static_cast<unsigned short>(std::stoi(line.substr(found + name.size())));
}

kube_sim_test::Reply ask(const Temp_Dir& dir, unsigned short port, const std::string& target) {
  kube_sim_test::Tls_Peer peer(port, read_file(dir / "state/ca.crt"));
  return peer.reply_to(target, "Authorization: Bearer " + read_file(dir / "state/token") + "\r\n");
}

TEST(Kube_Sim_Program, tells_what_to_export_and_serves_until_it_is_terminated) {
  const Temp_Dir dir;
  Program program(dir);
  const std::string line = program.line();
  EXPECT_THAT(line, testing::StartsWith("export KUBECONFIG=" + (dir / "state/kubeconfig") + " "));
  EXPECT_THAT(read_file(dir / "state/kubeconfig"),
              HasSubstr("server: https://127.0.0.1:" + std::to_string(port_in(line))));
  EXPECT_THAT(ask(dir, port_in(line), "/version").body, HasSubstr("v1.36.2"));
  EXPECT_THAT(ask(dir, port_in(line), "/api/v1/nodes").body, HasSubstr("\"name\":\"node-1\""));
  EXPECT_EQ(program.stop(SIGTERM), 0);
}

TEST(Kube_Sim_Program, keeps_its_token_for_its_owner) {
  const Temp_Dir dir;
  const Program program(dir, {"--serviceaccount", dir / "account"});
  program.line();
  for (const char* name : {"state/token", "state/kubeconfig", "account/token"}) {
    struct stat info {};
    ASSERT_EQ(stat((dir / name).c_str(), &info), 0) << name;
    EXPECT_EQ(info.st_mode & 077, 0u) << name;
  }
  EXPECT_EQ(read_file(dir / "account/ca.crt"), read_file(dir / "state/ca.crt"));
  EXPECT_EQ(read_file(dir / "account/namespace"), "default");
}

TEST(Kube_Sim_Program, begins_with_objects_and_pods_and_the_version_asked_for) {
  const Temp_Dir dir;
  const std::string objects =
      dir.write("objects.json", R"([{"kind":"Node","apiVersion":"v1","metadata":{"name":"mine"}}])");
  const Program program(dir,
                        {"--objects", objects, "--pods", "5", "--kubernetes-version", "v1.22.3", "--no-snapshots"});
  const unsigned short port = port_in(program.line());
  const std::string nodes = ask(dir, port, "/api/v1/nodes").body;
  EXPECT_THAT(nodes, HasSubstr("\"name\":\"mine\""));
  EXPECT_THAT(nodes, testing::Not(HasSubstr("node-1")));
  EXPECT_THAT(ask(dir, port, "/api/v1/namespaces/bench-0/pods").body, HasSubstr("\"name\":\"pod-4\""));
  EXPECT_THAT(ask(dir, port, "/version").body, HasSubstr("v1.22.3"));
  EXPECT_EQ(ask(dir, port, "/apis/snapshot.storage.k8s.io/v1/volumesnapshots").status, 404);
}

TEST(Kube_Sim_Program, fails_when_the_port_is_taken) {
  const Temp_Dir dir, other;
  const Program first(dir);
  Program second(other, {"--port", std::to_string(port_in(first.line()))});
  EXPECT_EQ(second.stop(0), 1);
}

TEST(Kube_Sim_Program, fails_when_the_objects_are_no_json) {
  const Temp_Dir dir;
  Program program(dir, {"--objects", dir.write("objects.json", "{")});
  EXPECT_EQ(program.stop(0), 1);
}

TEST(Kube_Sim_Program, refuses_an_unknown_option) {
  const Temp_Dir dir;
  Program program(dir, {"--nothing"});
  EXPECT_NE(program.stop(0), 0);
}

}  // namespace
