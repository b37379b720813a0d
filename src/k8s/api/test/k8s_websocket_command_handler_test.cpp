// Commands in a container, from the template to the log.
#include "k8s/api/k8s_websocket_command_handler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "host/host_manager.h"
#include "host/rsa_encoder.h"
#include "k8s/api/test/in_cluster.h"
#include "kolt/http_util.h"
#include "kolt/natoi.h"
#include "support/rsa_key_pair.h"
#include "support/temp_dir.h"

namespace {

using Command_Handler = K8S_Websocket_Command_Handler::Command_Handler;
using k8s_test::success;
using kube_sim::Exec_Stream;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

typedef std::map<std::string, std::string> Params;

const test_support::RSA_Key_Pair& keys() {
  static const test_support::RSA_Key_Pair pair;
  return pair;
}

std::string encrypted(const std::string& secret) {
  const std::string& key = keys().public_pem;
  const RSA_Encoder encoder(reinterpret_cast<const unsigned char*>(secret.data()), secret.size(),
                            reinterpret_cast<const unsigned char*>(key.data()), key.size(), true, 1);
  EXPECT_TRUE(encoder);
  return std::string(encoder.get(), encoder.get() + encoder.length());
}

class Command_Handler_Test : public k8s_test::In_Cluster_T<k8s_test::Exec_Api> {
 protected:
  Command_Handler_Test() {
    const std::string path = dir_.write("host.pem", keys().private_pem);
    ::chmod(path.c_str(), 0400);
    EXPECT_TRUE(Host_Manager::instance()->load_rsa_prvkey(path));
    log_.clear();
    answer("out\n");
  }

  void answer(const std::string& output, const char* status = success) {
    api_.script = [output, status](Exec_Stream& stream) {
      if (!output.empty()) stream.send(1, output);
      stream.send(3, status);
    };
  }

  bool run(const std::string& cmds, const Params& params, std::string& response) {
    return Command_Handler(cmds, params, 30)(url_, response);
  }
  bool run(const std::string& cmds, const Params& params = {}) {
    std::string response;
    return run(cmds, params, response);
  }

  /// The script of the last request, as the shell gets it.
  std::string script() const {
    const auto requests = front_.requests();
    const auto commands = requests.empty() ? std::vector<std::string>() : requests.back().parameters("command");
    EXPECT_THAT(commands, SizeIs(3));
    return commands.size() == 3 ? commands[2] : "";
  }
  /// What stands between the quotes of the echo.
  std::string sent() const {
    const std::string text = script();
    const size_t end = text.rfind("\" > /tmp/");
    return end == std::string::npos || text.compare(0, 6, "echo \"") != 0 ? "no script: " + text
                                                                          : text.substr(6, end - 6);
  }

  const test_support::Temp_Dir dir_;
  const std::string url_ = std::string("/api/v1/namespaces/n/pods/p") + K8S_Websocket_Command_Handler::exec_query;
};

TEST_F(Command_Handler_Test, ThePlaceOfTheScriptInTheUrlIsFixed) {
  EXPECT_STREQ(K8S_Websocket_Command_Handler::exec_query,
               "/exec?stderr=True&stdin=True&stdout=True&tty=False&command=/bin/sh&command=-c&command=");
}

TEST_F(Command_Handler_Test, TheTextIsRunAsAScriptUnderARandomName) {
  EXPECT_TRUE(run("ls -l; date"));
  const std::string first = script();
  EXPECT_THAT(first, MatchesRegex("echo \"ls -l; date\" > /tmp/[a-z]{8} && sh /tmp/[a-z]{8}"));
  EXPECT_EQ(first.substr(first.size() - 8), first.substr(first.find("/tmp/") + 5, 8));
  EXPECT_TRUE(run("ls -l; date"));
  EXPECT_NE(script(), first);
}

TEST_F(Command_Handler_Test, TheUrlIsThatOfTheCallerAndTheEncodedScript) {
  EXPECT_TRUE(run("a b/c+d;e%f&g=\xC3\xA9'(!*)~\n"));
  const std::string target = front_.requests().at(0).target;
  EXPECT_EQ(target.substr(0, url_.size()), url_);
  std::string encoded;
  http_encode_string(script().c_str(), HUT_FLAG_JS_ENCODE_URI_COMPONENT, encoded);
  EXPECT_EQ(target.substr(url_.size()), encoded);
  EXPECT_THAT(target, HasSubstr("echo%20%22a%20b%2Fc%2Bd%3Be%25f%26g%3D%C3%A9'(!*)~%0A%22%20%3E%20%2Ftmp%2F"));
  EXPECT_EQ(sent(), "a b/c+d;e%f&g=\xC3\xA9'(!*)~\n");
}

TEST_F(Command_Handler_Test, OutputIsTheResponseWithoutTheStatus) {
  std::string response;
  EXPECT_TRUE(run("ls", {}, response));
  EXPECT_EQ(response, "out\n");
  EXPECT_THAT(log_.texts(LM_INFO),
              ElementsAre("Request command of url is\nls.\n", "Websocket response message\nout\n\n"));
  EXPECT_THAT(log_.texts(LM_ERROR), IsEmpty()) << log_.all();
}

TEST_F(Command_Handler_Test, TheFormWithoutAResponseDropsIt) {
  const std::string cmds = "ls";
  const Params params;
  EXPECT_TRUE(Command_Handler(cmds, params, 30)(url_));
  EXPECT_TRUE(log_.has(LM_INFO, "Websocket response message\nout\n\n"));
}

TEST_F(Command_Handler_Test, ASizeCanBeReadFromTheBeginningOfTheOutput) {
  answer("4096\t/data\n");
  std::string response;
  EXPECT_TRUE(run("du -sb /data", {}, response));
  EXPECT_EQ(natoi<long>(response.c_str()), 4096);
}

TEST_F(Command_Handler_Test, AnOutputLongerThanALogLineIsCutInTheLogAlone) {
  const std::string output(10 * 1024 * 1024, 'x');
  api_.script = [&](Exec_Stream& stream) {
    for (size_t i = 0; i < output.size(); i += 32767) stream.send(1, std::string_view(output).substr(i, 32767));
    stream.send(3, success);
  };
  std::string response;
  EXPECT_TRUE(run("cat", {}, response));
  EXPECT_TRUE(response == output);
  EXPECT_THAT(log_.texts(LM_INFO), SizeIs(2));
  EXPECT_LE(log_.texts(LM_INFO).back().size(), 4096u);
}

TEST_F(Command_Handler_Test, NoCommandsAreNothingToDoWhateverTheKey) {
  std::string response = "untouched";
  EXPECT_TRUE(run("", {{"password", "no cipher"}}, response));
  EXPECT_EQ(response, "untouched");
  EXPECT_THAT(front_.requests(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Command_Handler_Test, ASecretIsFilledInWhereverItsNameStands) {
  EXPECT_TRUE(run("login {{password}} && check {{password}}", {{"password", encrypted("s3cret")}}));
  EXPECT_EQ(sent(), "login s3cret && check s3cret");
}

TEST_F(Command_Handler_Test, APlaceWithoutASecretStays) {
  EXPECT_TRUE(run("login {{user}} {{password}} {password}", {{"password", encrypted("s3cret")}}));
  EXPECT_EQ(sent(), "login {{user}} s3cret {password}");
}

TEST_F(Command_Handler_Test, SecretsAreFilledInInTheOrderOfTheirNames) {
  EXPECT_TRUE(run("{{a}} {{b}}", {{"b", encrypted("two")}, {"a", encrypted("{{b}}")}}));
  EXPECT_EQ(sent(), "two two");
}

TEST_F(Command_Handler_Test, ANameIsARegularExpression) {
  EXPECT_TRUE(run("{{p1}} {{p2}} {{q1}}", {{"p[0-9]", encrypted("s3cret")}}));
  EXPECT_EQ(sent(), "s3cret s3cret {{q1}}");
}

TEST_F(Command_Handler_Test, AValueIsAFormat) {
  EXPECT_TRUE(run("{{password}}", {{"password", encrypted("<$&> \\\\ $$ (a)")}}));
  EXPECT_EQ(sent(), "<{{password}}> \\ $ (a)");
}

TEST_F(Command_Handler_Test, ASecretMayTakeAllThatTheKeyCan) {
  const std::string secret(190, 'x');
  EXPECT_TRUE(run("{{password}}", {{"password", encrypted(secret)}}));
  EXPECT_EQ(sent(), secret);
}

TEST_F(Command_Handler_Test, ASecretThatCannotBeDecipheredStopsBeforeAnyConnection) {
  std::string response = "untouched";
  for (const std::string& value : {std::string("no cipher"), std::string(), encrypted("")}) {
    EXPECT_FALSE(run("login {{password}}", {{"password", value}}, response));
    EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("Failed to decrypt the value of password.\n"));
    EXPECT_THAT(log_.lines(), SizeIs(1));
    log_.clear();
  }
  EXPECT_EQ(response, "untouched");
  EXPECT_EQ(front_.connections(), 0u);
}

TEST_F(Command_Handler_Test, ASecretThatTheTextDoesNotNameIsDecipheredToo) {
  EXPECT_FALSE(run("ls", {{"a", encrypted("fine")}, {"b", "no cipher"}, {"c", "no cipher"}}));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("Failed to decrypt the value of b.\n"));
  EXPECT_THAT(front_.requests(), IsEmpty());
}

TEST_F(Command_Handler_Test, ANameThatIsNoRegularExpressionIsAFailure) {
  EXPECT_FALSE(run("ls {{(}}", {{"(", encrypted("s3cret")}}));
  EXPECT_THAT(log_.texts(LM_ERROR), SizeIs(1));
  EXPECT_THAT(log_.texts(LM_ERROR).at(0), HasSubstr("Failed to fill in the value of (: "));
  EXPECT_THAT(front_.requests(), IsEmpty());
}

TEST_F(Command_Handler_Test, AnExitCodeIsAFailureThatKeepsTheOutput) {
  answer("oops\n", k8s_test::exit_code_3);
  std::string response;
  EXPECT_FALSE(run("false", {}, response));
  EXPECT_EQ(response, std::string("oops\n") + k8s_test::exit_code_3);
  EXPECT_THAT(log_.texts(LM_ERROR),
              ElementsAre("Websocket response status is failed.\n", "Failed to send execute script:\nfalse.\n"));
}

TEST_F(Command_Handler_Test, AServerThatIsNotKnownIsAFailure) {
  ::unsetenv("KUBERNETES_SERVICE_HOST");
  EXPECT_FALSE(run("ls"));
  EXPECT_THAT(log_.texts(LM_ERROR),
              ElementsAre("Failed to get k8s service host.\n", "Failed to send execute script:\nls.\n"));
}

TEST_F(Command_Handler_Test, AFrameIsWaitedForNoLongerThanTheTimeout) {
  api_.script = [](Exec_Stream& stream) {
    std::string frame;
    while (stream.open()) stream.receive(frame, std::chrono::milliseconds(20));
  };
  const std::string cmds = "sleep 1000";
  const Params params;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(Command_Handler(cmds, params, 1)(url_));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
  EXPECT_EQ(log_.texts(LM_ERROR).back(), "Failed to send execute script:\nsleep 1000.\n");
}

TEST_F(Command_Handler_Test, ItCanRunAgain) {
  const std::string cmds = "login {{password}}";
  const Params params = {{"password", encrypted("s3cret")}};
  const Command_Handler handler(cmds, params, 30);
  EXPECT_TRUE(handler(url_));
  EXPECT_TRUE(handler(url_));
  EXPECT_EQ(front_.connections(), 2u);
}

TEST_F(Command_Handler_Test, EachOfTheThreeListsRunsItsOwnCommands) {
  const std::string before = "before {{s}}", success_cmds = "good {{s}}", failure = "bad {{s}}";
  const Params params = {{"s", encrypted("s3cret")}};
  const K8S_Websocket_Command_Handler handler(url_, before, success_cmds, failure, params, 30);
  EXPECT_TRUE(handler.handle_pre_commands_result());
  EXPECT_EQ(sent(), "before s3cret");
  EXPECT_TRUE(handler.handle_on_success_commands_result());
  EXPECT_EQ(sent(), "good s3cret");
  EXPECT_TRUE(handler.handle_on_failure_commands_result());
  EXPECT_EQ(sent(), "bad s3cret");
  EXPECT_THAT(front_.requests(), SizeIs(3));
}

TEST_F(Command_Handler_Test, EachListTellsItsOwnFailureAndAnEmptyOneIsDone) {
  const std::string none, some = "ls";
  const Params params;
  answer("", k8s_test::exit_code_3);
  const K8S_Websocket_Command_Handler handler(url_, none, some, none, params, 30);
  EXPECT_TRUE(handler.handle_pre_commands_result());
  EXPECT_FALSE(handler.handle_on_success_commands_result());
  EXPECT_TRUE(handler.handle_on_failure_commands_result());
}

/// A secret that no line of the log may hold, however the run ends; nor the text or the URL that hold it.
class Command_Secrets : public Command_Handler_Test {
 protected:
  void expect_no_secret() {
    run("login {{password}} then", {{"password", encrypted("CANARY+value")}});
    const std::string log = log_.all();
    EXPECT_FALSE(log.empty());
    for (const char* text : {"CANARY", "%20then", "login CANARY", "command=", "BEGIN PRIVATE KEY"})
      EXPECT_EQ(log.find(text), std::string::npos) << text << " in\n" << log;
  }
};

TEST_F(Command_Secrets, StayOutOfTheLogOfASuccess) {
  expect_no_secret();
  EXPECT_EQ(sent(), "login CANARY+value then");
}

TEST_F(Command_Secrets, StayOutOfTheLogOfAFailedCommand) {
  answer("oops\n", k8s_test::exit_code_3);
  expect_no_secret();
}

TEST_F(Command_Secrets, StayOutOfTheLogOfARefusal) {
  api_.refuse = "container not found";
  expect_no_secret();
}

TEST_F(Command_Secrets, StayOutOfTheLogOfADrop) {
  api_.script = [](Exec_Stream& stream) { stream.drop(); };
  expect_no_secret();
}

TEST_F(Command_Secrets, StayOutOfTheLogWhenTheServerIsAway) {
  {
    kube_sim::Front gone(api_);
    account_.set_front(gone);
  }
  expect_no_secret();
}

TEST_F(Command_Secrets, StayOutOfTheLogWhenTheServerIsNotTrusted) {
  account_.remove_ca();
  expect_no_secret();
}

TEST_F(Command_Secrets, StayOutOfTheLogWhenTheHeadBreaksOff) {
  kube_sim::Fault fault;
  fault.end = kube_sim::Fault::End::DROP_IN_HEAD;
  front_.fail({}, fault);
  expect_no_secret();
}

}  // namespace
