// The session's base: token and server, without any transport.
#include "k8s/api/k8s_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "k8s/api/k8s_def.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"

namespace {

using namespace std::chrono_literals;
using test_support::Fake_Clock;
using test_support::Log_Capture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::filesystem::path directory = "/var/run/secrets/kubernetes.io/serviceaccount";
constexpr char missing_token[] = "Failded to open token file, errno=2, No such file or directory\n";

class Probe : public K8S_Session {
 public:
  bool init() override { return true; }
  void set_request_token() override { sent_.push_back(token_); }

  using K8S_Session::expire_at_;
  using K8S_Session::host_;
  using K8S_Session::port_;
  using K8S_Session::reset_request;
  using K8S_Session::set_expire_time;
  using K8S_Session::set_host_port;
  using K8S_Session::set_token;
  using K8S_Session::token_;

  std::vector<std::string> sent_;  ///< the token of each request
};

class K8S_Session_Test : public ::testing::Test {
 protected:
  K8S_Session_Test() { std::filesystem::create_directories(directory); }
  ~K8S_Session_Test() override { std::filesystem::remove_all(directory); }

  void write_token(const std::string& content) { std::ofstream(directory / "token") << content; }

  std::string token_of(const std::string& content) {
    write_token(content);
    EXPECT_TRUE(session_.set_token());
    return session_.token_;
  }

  Fake_Clock clock_;
  Probe session_;
};

TEST_F(K8S_Session_Test, VerbsThatATransportDoesNotHaveTellSuccess) {
  json_spirit::Value val("untouched");
  std::string body = "untouched";
  EXPECT_TRUE(session_.get("/url", val));
  EXPECT_TRUE(session_.get("/url", body, nullptr));
  EXPECT_TRUE(session_.delete_("/url"));
  EXPECT_TRUE(session_.post("/url", val));
  EXPECT_TRUE(session_.patch("/url", val, "application/json"));
  EXPECT_EQ(session_.response_status(), 0);
  EXPECT_EQ(val, json_spirit::Value("untouched"));
  EXPECT_EQ(body, "untouched");
}

TEST_F(K8S_Session_Test, TokenIsTheFirstLineBehindTheWordBearer) {
  EXPECT_EQ(token_of("abc"), "Bearer abc");
  EXPECT_EQ(token_of("abc\n"), "Bearer abc");
  EXPECT_EQ(token_of("abc\nsecond line\n"), "Bearer abc");
}

TEST_F(K8S_Session_Test, NoLineEndOfAnyKindStaysInTheToken) {
  EXPECT_EQ(token_of("abc\r\n"), "Bearer abc");
  EXPECT_EQ(token_of("abc\r"), "Bearer abc");
  EXPECT_EQ(token_of("abc\r\r\nsecond\r\n"), "Bearer abc");
}

TEST_F(K8S_Session_Test, AnEmptyFileGivesTheWordAlone) {
  EXPECT_EQ(token_of(""), "Bearer ");
  EXPECT_EQ(token_of("\nabc"), "Bearer ");
}

TEST_F(K8S_Session_Test, ATokenMayBeLongerThanTheBuffer) {
  for (const size_t length : {8191, 8192, 8193, 20000})
    EXPECT_EQ(token_of(std::string(length, 'x') + "\nsecond"), "Bearer " + std::string(length, 'x'));
}

TEST_F(K8S_Session_Test, AMissingFileIsLoggedAndLeavesTheTokenAsItWas) {
  session_.token_ = "Bearer old";
  const Log_Capture log;
  EXPECT_FALSE(session_.set_token());
  EXPECT_EQ(session_.token_, "Bearer old");
  EXPECT_THAT(log.texts(LM_ERROR), ElementsAre(missing_token));
}

TEST_F(K8S_Session_Test, TheErrorOfTheOpenIsTold) {
  std::filesystem::create_symlink("token", directory / "token");
  const Log_Capture log;
  EXPECT_FALSE(session_.set_token());
  EXPECT_THAT(log.texts(LM_ERROR),
              ElementsAre("Failded to open token file, errno=40, Too many levels of symbolic links\n"));
}

TEST_F(K8S_Session_Test, TokenIsFreshForSixtySeconds) {
  EXPECT_EQ(K8S_TOKEN_EXPIRED_INTERVAL, 60);
  session_.set_expire_time();
  EXPECT_EQ(session_.expire_at_, clock_.now() + 60);
}

TEST_F(K8S_Session_Test, RequestsReadTheTokenAgainOnlyBehindTheSixtiethSecond) {
  write_token("first");
  session_.set_token();
  session_.set_expire_time();
  write_token("second");
  session_.reset_request();
  clock_.advance(59s);
  session_.reset_request();
  clock_.advance(1s);  // the moment itself still counts as fresh
  session_.reset_request();
  clock_.advance(1s);
  session_.reset_request();
  EXPECT_THAT(session_.sent_, ElementsAre("Bearer first", "Bearer first", "Bearer first", "Bearer second"));
}

TEST_F(K8S_Session_Test, EachReadStartsAnotherMinute) {
  write_token("first");
  session_.set_token();
  session_.set_expire_time();
  clock_.advance(200s);
  session_.reset_request();
  EXPECT_EQ(session_.expire_at_, clock_.now() + 60);
  write_token("second");
  clock_.advance(60s);
  session_.reset_request();
  EXPECT_THAT(session_.sent_, ElementsAre("Bearer first", "Bearer first"));
  clock_.advance(1s);
  session_.reset_request();
  EXPECT_EQ(session_.sent_.back(), "Bearer second");
}

TEST_F(K8S_Session_Test, AFailedReadKeepsTheOldTokenForAnotherMinute) {
  write_token("first");
  session_.set_token();
  session_.set_expire_time();
  std::filesystem::remove(directory / "token");
  clock_.advance(61s);
  const Log_Capture log;
  session_.reset_request();
  write_token("second");
  clock_.advance(60s);
  session_.reset_request();
  EXPECT_THAT(session_.sent_, ElementsAre("Bearer first", "Bearer first"));
  EXPECT_THAT(log.texts(LM_ERROR), ElementsAre(missing_token));
  clock_.advance(1s);
  session_.reset_request();
  EXPECT_EQ(session_.sent_.back(), "Bearer second");
}

class K8S_Session_Server : public ::testing::Test {
 protected:
  K8S_Session_Server() {
    unsetenv("KUBERNETES_SERVICE_HOST");
    unsetenv("KUBERNETES_SERVICE_PORT");
  }

  bool set(const char* host, const char* port) {
    setenv("KUBERNETES_SERVICE_HOST", host, 1);
    setenv("KUBERNETES_SERVICE_PORT", port, 1);
    return session_.set_host_port();
  }

  Probe session_;
  const Log_Capture log_;
};

TEST_F(K8S_Session_Server, ComesFromTheEnvironment) {
  EXPECT_TRUE(set("10.0.0.1", "6443"));
  EXPECT_EQ(session_.host_, "10.0.0.1");
  EXPECT_EQ(session_.port_, 6443);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(K8S_Session_Server, WithoutAHostIsAFailure) {
  setenv("KUBERNETES_SERVICE_PORT", "6443", 1);
  EXPECT_FALSE(session_.set_host_port());
  EXPECT_FALSE(set("", "6443"));
  EXPECT_THAT(log_.texts(LM_ERROR),
              ElementsAre("Failed to get k8s service host.\n", "Failed to get k8s service host.\n"));
}

TEST_F(K8S_Session_Server, WithoutAPortIsAFailure) {
  setenv("KUBERNETES_SERVICE_HOST", "10.0.0.1", 1);
  EXPECT_FALSE(session_.set_host_port());
  EXPECT_FALSE(set("10.0.0.1", ""));
  EXPECT_THAT(log_.texts(LM_ERROR),
              ElementsAre("Failed to get k8s service port.\n", "Failed to get k8s service port.\n"));
  EXPECT_EQ(session_.host_, "10.0.0.1");
}

TEST_F(K8S_Session_Server, APortThatIsNoNumberIsASilentFailure) {
  for (const char* port : {"x", "0", "-1", " 443", "tcp://10.0.0.1:443"}) EXPECT_FALSE(set("10.0.0.1", port)) << port;
  EXPECT_EQ(session_.port_, 0);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(K8S_Session_Server, APortIsReadAsNumbersAreEverywhere) {
  EXPECT_TRUE(set("10.0.0.1", "+443"));
  EXPECT_EQ(session_.port_, 443);
  EXPECT_TRUE(set("10.0.0.1", "443x"));
  EXPECT_EQ(session_.port_, 443);
  EXPECT_TRUE(set("10.0.0.1", "65536"));
  EXPECT_EQ(session_.port_, 65535);
}

}  // namespace
