// The agent as a process, as an administrator and a requester see it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "http/test/raw_peer.h"
#include "kolt/mount_table.h"
#include "support/rsa_key_pair.h"
#include "support/temp_dir.h"

using testing::HasSubstr;
using testing::Not;

namespace {

class Agent_Process_Test : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::copy_file(TEST_PLUGIN, plugin_);
    ASSERT_EQ(0, chmod(plugin_.c_str(), 0755));
    write_config(service("Start", "test.start", "_make_Start_Handler") +
                 service("Cancel", "k8s.cancel_job", "_make_Cancel_Handler"));
  }
  void TearDown() override {
    if (pid_ > 0) end(SIGKILL);
  }

  std::string service(const std::string& name, const std::string& method, const std::string& factory) {
    return "dynamic " + name + " Service_Object * " TESSARIN_LIBRARY ":_make_JSON_RPC_Method() \"-m " + method +
           " -f " + plugin_ + ":" + factory + "\"\n";
  }
  void write_config(const std::string& text) { ASSERT_EQ(0, chmod(dir_.write("svc.conf", text).c_str(), 0644)); }

  pid_t spawn(const std::string& log) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    const int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(fd, STDERR_FILENO);
    if (chdir(work_.path().c_str()) == -1) _exit(126);
    const std::string svc_conf = dir_ / "svc.conf";
    std::vector<const char*> words = {"tessarin-agent", "--svc-conf", svc_conf.c_str(), "--state-dir",
                                      state_.c_str(),   "--listen",   listen_.c_str()};
    if (!host_key_.empty()) words.insert(words.end(), {"--host-key", host_key_.c_str()});
    for (const std::string& option : options_) words.push_back(option.c_str());
    words.push_back(nullptr);
    execv(AGENT_PROGRAM, const_cast<char* const*>(words.data()));
    _exit(127);
  }

  void start() {
    pid_ = spawn(log_path_);
    ASSERT_TRUE(eventually([this] { return log().find("is ready") != std::string::npos; })) << log();
  }

  /// The exit code, 128 + the signal for one that was killed.
  int end(int signal) {
    kill(pid_, signal);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  std::string log() const { return std::filesystem::exists(log_path_) ? test_support::read_file(log_path_) : ""; }

  std::string call(const std::string& method, const std::string& params = "{}") {
    Raw_Peer peer = Raw_Peer::to_unix(state_ + "/agent.sock");
    peer.say(post(R"({"jsonrpc":"2.0","id":1,"method":")" + method + R"(","params":)" + params + "}"));
    return peer.hear();
  }

  template <typename Condition>
  static bool eventually(Condition condition) {
    for (int i = 0; i < 6000; ++i) {
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  }

  test_support::Temp_Dir dir_;
  test_support::Temp_Dir work_;
  const std::string plugin_ = dir_ / "plugin.so";
  const std::string state_ = dir_ / "state";
  const std::string log_path_ = dir_ / "log";
  std::string host_key_;
  std::string listen_ = "127.0.0.1:0";
  std::vector<std::string> options_;
  pid_t pid_ = 0;
};

TEST_F(Agent_Process_Test, InfoTellsMethodsAndPlugin) {
  start();
  const std::string answer = call("agent.info");
  EXPECT_THAT(answer, HasSubstr(R"("methods":["agent.info","agent.tasks","k8s.cancel_job","test.start"])"));
  EXPECT_THAT(answer, HasSubstr("\"plugin\":\"" + plugin_ + "\""));
  EXPECT_THAT(answer, HasSubstr("\"state_dir\":\"" + state_ + "\""));
  EXPECT_THAT(answer, HasSubstr("\"uptime_seconds\":"));
  const std::string uuid = test_support::read_file(state_ + "/host_uuid").substr(0, 36);
  EXPECT_THAT(answer, HasSubstr("\"host_uuid\":\"" + uuid + "\""));
}

TEST_F(Agent_Process_Test, TasksTellsWhatTheTaskManagerKnows) {
  start();
  EXPECT_THAT(call("agent.tasks"), HasSubstr(R"("result":{"tasks":[]})"));
  call("test.start");
  EXPECT_THAT(call("agent.tasks"), HasSubstr(R"("type":"endless")"));
  EXPECT_THAT(call("agent.tasks", R"({"id":"none"})"), HasSubstr(R"("result":{"tasks":[]})"));
}

TEST_F(Agent_Process_Test, TermCancelsTheRunningJobUnloadsThePluginAndRemovesTheSocket) {
  start();
  call("test.start");
  ASSERT_TRUE(eventually([this] { return log().find("job runs") != std::string::npos; }));
  EXPECT_EQ(0, end(SIGTERM)) << log();
  const std::string text = log();
  EXPECT_THAT(text, HasSubstr("job ends\n"));
  EXPECT_LT(text.find("job ends\n"), text.find("plug-in unloaded\n"));
  EXPECT_NE(std::string::npos, text.find("plug-in unloaded\n"));
  EXPECT_FALSE(std::filesystem::exists(state_ + "/agent.sock"));
}

TEST_F(Agent_Process_Test, HostKeyIsLoadedAtTheStart) {
  const test_support::RSA_Key_Pair keys;
  host_key_ = dir_.write("host.pem", keys.private_pem);
  ASSERT_EQ(0, chmod(host_key_.c_str(), 0400));
  start();
  EXPECT_THAT(log(), HasSubstr("Host key with 2048 bits loaded from '" + host_key_ + "'"));
  EXPECT_THAT(log(), Not(HasSubstr(keys.private_pem.substr(60, 20))));
  EXPECT_EQ(0, end(SIGTERM)) << log();
}

TEST_F(Agent_Process_Test, DoesNotStartWithAHostKeyThatOthersMayRead) {
  host_key_ = dir_.write("host.pem", test_support::RSA_Key_Pair().private_pem);
  ASSERT_EQ(0, chmod(host_key_.c_str(), 0644));
  pid_ = spawn(log_path_);
  EXPECT_EQ(1, end(0)) << log();
  EXPECT_THAT(log(), HasSubstr("The host key '" + host_key_ + "' is refused: others may access it (mode 644)."));
}

TEST_F(Agent_Process_Test, IntEndsItToo) {
  start();
  EXPECT_EQ(0, end(SIGINT)) << log();
}

TEST_F(Agent_Process_Test, HangUpReadsNoConfigurationFromTheWorkingDirectory) {
  start();
  work_.write("svc.conf", "dynamic Planted Service_Object * /nowhere/libplanted.so:_make()\n");
  kill(pid_, SIGHUP);
  ASSERT_TRUE(eventually([this] { return log().find("SIGHUP") != std::string::npos; }));
  EXPECT_THAT(log(), Not(HasSubstr("lanted")));
  EXPECT_EQ("/", std::filesystem::read_symlink("/proc/" + std::to_string(pid_) + "/cwd"));
  EXPECT_EQ(0, end(SIGTERM));
}

TEST_F(Agent_Process_Test, KilledInMidJobItsTaskReadsFailedAfterTheNextStart) {
  start();
  call("test.start");
  ASSERT_TRUE(eventually([this] { return log().find("job runs") != std::string::npos; }));
  EXPECT_EQ(128 + SIGKILL, end(SIGKILL));
  std::filesystem::remove(log_path_);
  start();
  const std::string answer = call("agent.tasks");
  EXPECT_THAT(answer, HasSubstr(R"("state":"failed")"));
  EXPECT_EQ(0, end(SIGTERM));
}

TEST_F(Agent_Process_Test, StartTakesDownWhatAnEarlierRunLeft) {
  const std::string bind = "/var/cache/velmora/tessarin/k8s/data/pvc";
  const std::string precious = dir_.write("source/precious", "data");
  std::filesystem::create_directories(bind);
  ASSERT_EQ(0, mount((dir_ / "source").c_str(), bind.c_str(), nullptr, MS_BIND, nullptr));
  start();
  std::vector<std::string> mounts;
  EXPECT_TRUE(mounts_below("/var/cache/velmora", mounts));
  EXPECT_TRUE(mounts.empty());
  EXPECT_EQ("data", test_support::read_file(precious));
  EXPECT_EQ(0, end(SIGTERM));
}

TEST_F(Agent_Process_Test, CallerByTCPNeedsTheTokenOfTheStateDirectory) {
  start();
  const std::string text = log();
  const size_t at = text.find(" port ");
  const auto port = static_cast<unsigned short>(std::stoul(text.substr(at + 6)));
  Raw_Peer stranger = Raw_Peer::to_tcp(port);
  stranger.say(post("{}"));
  EXPECT_THAT(stranger.hear(), HasSubstr("401"));
  std::string token = test_support::read_file(state_ + "/token");
  token.pop_back();
  Raw_Peer friend_of_ours = Raw_Peer::to_tcp(port);
  friend_of_ours.say(post("{}", "Authorization: Bearer " + token + "\r\n"));
  EXPECT_THAT(friend_of_ours.hear(), HasSubstr("-32600"));
  EXPECT_THAT(log(), Not(HasSubstr(token)));
  EXPECT_EQ(0, end(SIGTERM));
}

TEST_F(Agent_Process_Test, SecondAgentOfAStateDirectoryDoesNotStart) {
  start();
  const pid_t second = spawn(dir_ / "second.log");
  int status = 0;
  waitpid(second, &status, 0);
  EXPECT_EQ(1, WEXITSTATUS(status));
  EXPECT_THAT(test_support::read_file(dir_ / "second.log"), HasSubstr("Another agent has the state directory"));
  EXPECT_THAT(call("agent.info"), HasSubstr("200 OK"));
  EXPECT_EQ(0, end(SIGTERM));
}

/// Starts with what must not be, and ends with code 1 and one line that tells it.
class Agent_Refuses_Access : public Agent_Process_Test {
 protected:
  void expect_refused(const std::string& line) {
    pid_ = spawn(log_path_);
    EXPECT_EQ(1, end(0));
    EXPECT_THAT(log(), HasSubstr(line));
    EXPECT_EQ(1, std::ranges::count(log(), '\n')) << log();
    EXPECT_FALSE(std::filesystem::exists(state_ + "/agent.sock"));
    std::filesystem::remove(log_path_);
  }
};

TEST_F(Agent_Refuses_Access, ToListenOnAnyAddressWithoutTLS) {
  for (const char* address : {"0.0.0.0", "[::]"}) {
    listen_ = std::string(address) + ":0";
    pid_ = spawn(log_path_);
    EXPECT_EQ(1, end(0));
    EXPECT_THAT(log(), HasSubstr("only loopback addresses go without TLS."));
  }
}

TEST_F(Agent_Refuses_Access, TLSWithoutACheckOfTokens) {
  options_ = {"--tls-cert", dir_ / "tls.crt", "--tls-key", dir_ / "tls.key"};
  expect_refused("--tls-cert needs --token-file or --token-review: callers could not be told from others.");
}

TEST_F(Agent_Refuses_Access, ReviewForNobody) {
  options_ = {"--token-review"};
  expect_refused("--token-review needs --allow-service-account: nobody could call.");
}

TEST_F(Agent_Refuses_Access, OptionsOfAFileThatOthersMayWrite) {
  options_ = {"--config", dir_.write("agent.conf", "answer-timeout = 5\n")};
  ASSERT_EQ(0, chmod(options_[1].c_str(), 0666));
  expect_refused("'" + options_[1] + "' is not trusted: others may write it");
}

TEST_F(Agent_Refuses_Access, CAOfPeersThatIsNotThere) {
  options_ = {"--peer-tls", "--peer-ca", dir_ / "none"};
  expect_refused("No CA of peers: '" + (dir_ / "none") + "' cannot be read: No such file or directory.");
}

TEST_F(Agent_Process_Test, OptionsComeFromAFile) {
  options_ = {"--config", dir_.write("agent.conf", "token-file = \"" + (dir_ / "tokens") + "\"\n")};
  ASSERT_EQ(0, chmod(options_[1].c_str(), 0644));
  ASSERT_EQ(0, chmod(dir_.write("tokens", "a-token-of-the-file\n").c_str(), 0600));
  start();
  EXPECT_THAT(log(), HasSubstr(", tokens in '" + (dir_ / "tokens") + "'."));
  EXPECT_FALSE(std::filesystem::exists(state_ + "/token")) << "one that nobody may show";
  EXPECT_EQ(0, end(SIGTERM)) << log();
}

struct Bad_Start {
  const char* name;
  void (*spoil)(const std::string& config, const std::string& plugin);
  const char* line;
};

class Agent_Refuses : public Agent_Process_Test, public testing::WithParamInterface<Bad_Start> {};

TEST_P(Agent_Refuses, ToStart) {
  GetParam().spoil(dir_ / "svc.conf", plugin_);
  pid_ = spawn(log_path_);
  EXPECT_EQ(1, end(0));
  EXPECT_THAT(log(), HasSubstr(GetParam().line));
  EXPECT_FALSE(std::filesystem::exists(state_ + "/agent.sock"));
}

void replace_config(const std::string& config, const std::string& text) {
  std::ofstream(config, std::ios::trunc) << text;
}

INSTANTIATE_TEST_SUITE_P(
    Faults, Agent_Refuses,
    testing::Values(
        Bad_Start{"ConfigOthersMayWrite", [](auto& config, auto&) { chmod(config.c_str(), 0666); },
                  "others may write it"},
        Bad_Start{"NoConfig", [](auto& config, auto&) { unlink(config.c_str()); }, "No such file"},
        Bad_Start{"BrokenConfig", [](auto& config, auto&) { replace_config(config, "dynamic of nonsense\n"); },
                  "Failed to load all services"},
        Bad_Start{"PluginOthersMayWrite", [](auto&, auto& plugin) { chmod(plugin.c_str(), 0777); },
                  "others may write it"},
        Bad_Start{"NoPlugin", [](auto&, auto& plugin) { unlink(plugin.c_str()); }, "Failed to load all services"}),
    [](const auto& info) { return info.param.name; });

}  // namespace
