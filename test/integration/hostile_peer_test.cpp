// The agent as a process, under peers that mean it no good: afterwards it answers as before.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <list>
#include <memory>
#include <sstream>
#include <thread>

#include "http/test/raw_peer.h"
#include "integration/agent_process.h"
#include "support/temp_dir.h"

namespace test_support {
namespace {

using std::chrono::seconds;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string info = R"({"jsonrpc":"2.0","id":1,"method":"agent.info"})";

/// What a command prints.
std::string output_of(const std::string& command) {
  std::string text;
  FILE* const pipe = popen(command.c_str(), "r");
  if (!pipe) return text;
  char buffer[4096];
  while (const size_t n = fread(buffer, 1, sizeof buffer, pipe)) text.append(buffer, n);
  pclose(pipe);
  return text;
}

class Hostile_Peer : public ::testing::Test {
 protected:
  void start(std::vector<std::string> options = {}) {
    options.insert(options.end(), {"--listen", "127.0.0.1:0"});
    agent_ = std::make_unique<Agent_Process>(dir_ / "state", options);
    ASSERT_TRUE(agent_->start()) << agent_->log();
  }
  void TearDown() override {
    if (!agent_) return;
    EXPECT_THAT(said(info), HasSubstr("\"result\"")) << "the agent does not serve any more";
    EXPECT_EQ(0, agent_->terminate()) << agent_->log();
  }

  Raw_Peer peer() { return Raw_Peer::to_unix(dir_ / "state/agent.sock"); }

  /// The answer to one POST on a connection of its own.
  std::string said(const std::string& body) {
    Raw_Peer peer = this->peer();
    peer.say(post(body));
    return peer.hear();
  }
  /// The answer to one text over a WebSocket of its own, by its first bytes.
  std::string told(const std::string& text) {
    Raw_Peer peer = this->peer();
    peer.say(upgrade());
    EXPECT_THAT(peer.hear(), StartsWith("HTTP/1.1 101 "));
    peer.say(frame(0x81, text));
    return hear_frame(peer);
  }

  std::string url() const {
    const std::string log = agent_->log(), before = "127.0.0.1 port ";
    return "http://127.0.0.1:" + std::to_string(std::stoi(log.substr(log.find(before) + before.size()))) + "/d2/jr";
  }

  /// A figure of /proc/PID/status, in KiB or pieces.
  long figure(const std::string& name) const {
    std::ifstream status("/proc/" + std::to_string(agent_->pid()) + "/status");
    for (std::string line; std::getline(status, line);)
      if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
    return -1;
  }

  Temp_Dir dir_;
  std::unique_ptr<Agent_Process> agent_;
};

TEST_F(Hostile_Peer, WithoutTheTokenOrWithAnotherIsRefusedAndWithItServed) {
  start();
  const std::string curl = "curl -s -o /dev/null -w '%{http_code}' -d '" + info + "' " + url();
  std::string token = read_file(dir_ / "state/token");
  token.pop_back();
  const std::string bearer = " -H 'Authorization: Bearer ";
  EXPECT_EQ("401", output_of(curl));
  EXPECT_EQ("401", output_of(curl + bearer + "'"));
  EXPECT_EQ("401", output_of(curl + bearer + "wrong'"));
  EXPECT_EQ("401", output_of(curl + bearer + token + "x'"));
  EXPECT_EQ("401", output_of(curl + bearer + token.substr(0, token.size() - 1) + "'"));
  EXPECT_EQ("401", output_of(curl + " -u admin:" + token));
  EXPECT_EQ("401", output_of("curl -s -o /dev/null -w '%{http_code}' '" + url() + "?token=" + token + "'"));
  EXPECT_EQ("200", output_of(curl + bearer + token + "'"));
  EXPECT_THAT(agent_->log(), Not(HasSubstr(token)));
}

TEST_F(Hostile_Peer, GoodPollsAreAnsweredAmongAThousandSlowOnesAndTheseAreEnded) {
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &files));
  ASSERT_GE(files.rlim_cur, 2000u);
  start();
  std::list<Raw_Peer> slow;
  for (int i = 0; i < 1000; ++i) {
    slow.push_back(peer());
    slow.back().say(i % 2 ? "POST /d2/jr HTTP/1.1\r\nHost: x\r\nA: " : post(info).substr(0, 90));
    if (i % 50 == 0) {
      EXPECT_THAT(said(info), HasSubstr("\"result\"")) << i;
    }
  }
  for (int i = 0; i < 50; ++i) {
    for (Raw_Peer& one : slow) one.say("x");
    ASSERT_THAT(said(info), HasSubstr("\"result\"")) << i;
  }
  EXPECT_LE(std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(agent_->pid()) + "/fd"),
                          std::filesystem::directory_iterator()),
            300);
  // The head's deadline ends those that have still a place.
  for (Raw_Peer& one : slow)
    while (one.say("x")) std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

TEST_F(Hostile_Peer, BodiesThatLieOrAreTooLongCostNoMemory) {
  start();
  const long before = figure("VmRSS");
  const std::string head = "POST /d2/jr HTTP/1.1\r\nHost: x\r\n";
  std::list<Raw_Peer> peers;
  for (int i = 0; i < 100; ++i) {
    for (const char* lie :
         {"Content-Length: 4194304\r\n\r\nx", "Content-Length: 4194305\r\n\r\n",
          "Content-Length: 18446744073709551615\r\n\r\nx", "Transfer-Encoding: chunked\r\n\r\n3fffff\r\nx",
          "Transfer-Encoding: chunked\r\n\r\nffffffff\r\n"}) {
      peers.push_back(peer());
      peers.back().say(head + lie);
      if (peers.size() > 120) peers.pop_front();
    }
    ASSERT_THAT(said(info), HasSubstr("\"result\""));
  }
  EXPECT_LT(figure("VmRSS") - before, 64 * 1024);
}

TEST_F(Hostile_Peer, BodyLimitIsTheOptions) {
  start({"--max-request-bytes", "2048"});
  EXPECT_THAT(said(info + std::string(2048 - info.size(), ' ')), HasSubstr("\"result\""));
  EXPECT_THAT(said(info + std::string(2049 - info.size(), ' ')), StartsWith("HTTP/1.1 413 "));
}

TEST_F(Hostile_Peer, ConnectionLimitIsTheOptions) {
  start({"--max-connections-per-peer", "3"});
  std::list<Raw_Peer> idle;
  for (int i = 0; i < 4; ++i) {
    idle.push_back(peer());
    idle.back().say(post(info));
    EXPECT_THAT(idle.back().hear(), HasSubstr("\"result\""));
  }
  EXPECT_TRUE(idle.front().ends()) << "the one that waited longest gives way to the fourth";
}

TEST_F(Hostile_Peer, IdleLimitIsTheOptions) {
  start({"--idle-timeout", "1"});
  Raw_Peer idle = peer();
  idle.say(post(info));
  EXPECT_THAT(idle.hear(), HasSubstr("\"result\""));
  EXPECT_TRUE(idle.ends());
}

TEST_F(Hostile_Peer, DeepJSONIsAParseError) {
  start();
  std::string members;
  for (int i = 0; i < 100'000; ++i) members += "{\"a\":";
  const std::string brackets(100'000, '[');
  for (const std::string& text :
       {brackets, brackets + std::string(100'000, ']'), members, std::string("[") + members}) {
    EXPECT_THAT(said(text), HasSubstr("-32700"));
    EXPECT_THAT(told(text), HasSubstr("-32700"));
  }
}

TEST_F(Hostile_Peer, NumbersBeyondAllBoundsAreAParseError) {
  start();
  const std::string begin = R"({"jsonrpc":"2.0","id":1,"method":"agent.info","params":[)";
  for (const std::string& number : {std::string("1e999"), std::string("-1e999"), std::string(100'000, '9')})
    EXPECT_THAT(said(begin + number + "]}"), HasSubstr("-32700")) << number.substr(0, 10);
  EXPECT_THAT(said(begin + "0." + std::string(100'000, '0') + "1,18446744073709551616,-0.0]}"),
              HasSubstr("\"result\""));
}

TEST_F(Hostile_Peer, TextThatIsNoUTF8IsAParseError) {
  start();
  for (const char* bytes : {"\xff", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe2\x82", "\\ud800"})
    EXPECT_THAT(said(R"({"jsonrpc":"2.0","id":")" + std::string(bytes) + R"(","method":"agent.info"})"),
                HasSubstr("-32700"))
        << bytes;
}

TEST_F(Hostile_Peer, OfTwoMembersOfOneNameTheLastCounts) {
  start();
  EXPECT_THAT(said(R"({"jsonrpc":"2.0","id":1,"method":"agent.info","method":"none"})"), HasSubstr("-32601"));
  EXPECT_THAT(said(R"({"jsonrpc":"2.0","id":1,"id":2,"method":"none","method":"agent.info"})"), HasSubstr("\"id\":2,"));
}

TEST_F(Hostile_Peer, EveryDocumentOfTheCorpusIsAnsweredWithAnError) {
  start();
  int documents = 0;
  for (const auto& file : std::filesystem::recursive_directory_iterator(TEST_DATA_DIR "/json")) {
    if (!file.is_regular_file()) continue;
    ++documents;
    const std::string answer = said(read_file(file.path()));
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 ")) << file.path();
    EXPECT_THAT(answer, ::testing::AnyOf(HasSubstr("-32700"), HasSubstr("-32600"))) << file.path();
  }
  EXPECT_GT(documents, 300);
}

TEST_F(Hostile_Peer, BatchOfOneTooManyIsOneErrorAndNotificationsAreNotAnswered) {
  start({"--max-batch", "10"});
  const auto batch = [](int count, const std::string& message) {
    std::string text = "[" + message;
    for (int i = 1; i < count; ++i) text += "," + message;
    return text + "]";
  };
  EXPECT_THAT(said(batch(10, info)), HasSubstr("\"result\""));
  EXPECT_THAT(said(batch(11, info)), HasSubstr("{\"error\":{\"code\":-32600,"));
  EXPECT_THAT(said(batch(500'000, "1")), HasSubstr("the batch is too long"));
  EXPECT_THAT(said("[]"), HasSubstr("the batch is empty"));
  EXPECT_THAT(said(batch(3, "1")), HasSubstr("[{\"error\":{\"code\":-32600,"));
  const std::string notification = R"({"jsonrpc":"2.0","method":"agent.info"})";
  EXPECT_THAT(said(notification), StartsWith("HTTP/1.1 204 "));
  EXPECT_THAT(said(batch(10, notification)), StartsWith("HTTP/1.1 204 "));
  EXPECT_THAT(said(R"({"jsonrpc":"2.0","id":1,"method":"none"})"), HasSubstr("-32601"));
  EXPECT_THAT(said(R"({"jsonrpc":"2.0","id":1,"method":"k8s.backup","params":[]})"), HasSubstr("-32602"));
}

// Four threads serve pooled requests: these would be all of them.
TEST_F(Hostile_Peer, PatternsThatMultiplyTheirPathsDoNotKeepTheThreadsOfThePool) {
  start();
  for (int i = 0; i < 60; ++i) std::filesystem::create_directories(dir_ / ("wide/" + std::to_string(i)));
  std::string pattern = dir_ / "wide";
  for (int i = 0; i < 12; ++i) pattern += "/*/..";
  std::string long_pattern;
  for (int i = 0; i < 1'000'000; ++i) long_pattern += "/*";
  const auto request = [](const std::string& path) {
    return R"({"jsonrpc":"2.0","id":1,"method":"k8s.get_pvc_size","params":{"path":")" + path + "\"}}";
  };
  std::list<Raw_Peer> peers;
  for (int i = 0; i < 8; ++i) {
    peers.push_back(peer());
    peers.back().say(post(request(i % 2 ? pattern : long_pattern)));
  }
  for (Raw_Peer& one : peers) EXPECT_THAT(one.hear(), HasSubstr("Invalid params: failed to get path."));
  EXPECT_THAT(said(request(dir_ / "wide/*/../7")), HasSubstr("\"result\":{\"size\":0}"));
  EXPECT_THAT(said(R"({"jsonrpc":"2.0","id":1,"method":"k8s.cancel_job"})"), HasSubstr("\"state\":true"));
  EXPECT_THAT(agent_->log(), HasSubstr("is given up: it leads to too many paths."));
}

TEST_F(Hostile_Peer, CrashOfTheAgentWouldLeaveNoCoreFile) {
  start();
  const std::string limits = read_file("/proc/" + std::to_string(agent_->pid()) + "/limits");
  const size_t core = limits.find("Max core file size");
  ASSERT_NE(core, std::string::npos);
  std::istringstream line(limits.substr(core + 18));
  std::string soft, hard;
  line >> soft >> hard;
  EXPECT_EQ("0", soft);
  EXPECT_EQ("0", hard);
}

}  // namespace
}  // namespace test_support
