#include "k8s/api/k8s_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kolt/make_shared_nothrow.h"
#include "support/log_capture.h"

namespace {

using json_spirit::Value;
using test_support::Log_Capture;
using ::testing::_;
using ::testing::DoAll;
using ::testing::Return;
using ::testing::SetArgReferee;
using ::testing::SizeIs;
using ::testing::StartsWith;
using ::testing::StrEq;

class Mock_Session : public K8S_Session {
 public:
  MOCK_METHOD(bool, get, (const std::string&, Value&), (override));
  MOCK_METHOD(bool, get, (const std::string&, std::string&, const ACE_Time_Value*), (override));
  MOCK_METHOD(bool, delete_, (const std::string&), (override));
  MOCK_METHOD(bool, post, (const std::string&, const Value&), (override));
  MOCK_METHOD(bool, patch, (const std::string&, const Value&, const char*), (override));
  MOCK_METHOD(int, response_status, (), (override));
  MOCK_METHOD(bool, init, (), (override));
  MOCK_METHOD(void, set_request_token, (), (override));
};

Value parsed(const char* text) {
  Value value;
  EXPECT_TRUE(json_spirit::loads_json(text, value)) << text;
  return value;
}

class K8S_Client_Test : public ::testing::Test {
 protected:
  K8S_Client_Test() : session_(new Mock_Session), client_(std::unique_ptr<K8S_Session>(session_)) {}

  /// What get() makes of a reply.
  bool get(bool exchanged, const char* reply, Value& val) {
    EXPECT_CALL(*session_, get("/url", ::testing::An<Value&>()))
        .WillOnce(DoAll(SetArgReferee<1>(parsed(reply)), Return(exchanged)));
    return client_.get("/url", val);
  }

  Mock_Session* session_;  // the client's
  K8S_Client client_;
};

TEST_F(K8S_Client_Test, GetTakesAnObject) {
  Value val;
  EXPECT_TRUE(get(true, R"({"a": 1})", val));
  EXPECT_EQ(val, parsed(R"({"a": 1})"));
}

TEST_F(K8S_Client_Test, GetOfAnythingElseFailsAndLeavesItInTheValue) {
  for (const char* reply : {"[1]", "\"text\"", "1", "null"}) {
    Value val;
    EXPECT_FALSE(get(true, reply, val)) << reply;
    EXPECT_EQ(val, parsed(reply));
  }
}

TEST_F(K8S_Client_Test, GetFailsWithItsSession) {
  Value val;
  EXPECT_FALSE(get(false, R"({"a": 1})", val));
}

TEST_F(K8S_Client_Test, ListWithoutSelectorsAsksForTheUrlAsItIs) {
  EXPECT_CALL(*session_, get("/api/v1/pods", ::testing::An<Value&>()))
      .WillOnce(DoAll(SetArgReferee<1>(parsed("{}")), Return(true)));
  Value val;
  EXPECT_TRUE(client_.list("/api/v1/pods", val, {}));
}

TEST_F(K8S_Client_Test, ListPutsTheSelectorsBehindTheUrl) {
  EXPECT_CALL(*session_, get("/api/v1/pods?labelSelector=a%3D1,b%3D2", ::testing::An<Value&>()))
      .WillOnce(DoAll(SetArgReferee<1>(parsed("{}")), Return(true)));
  Value val;
  EXPECT_TRUE(client_.list("/api/v1/pods", val, {{"labelSelector", {{"b", "2"}, {"a", "1"}}}}));
}

TEST_F(K8S_Client_Test, ListOfAnArrayFails) {
  EXPECT_CALL(*session_, get("/url", ::testing::An<Value&>()))
      .WillOnce(DoAll(SetArgReferee<1>(parsed("[]")), Return(true)));
  Value val;
  EXPECT_FALSE(client_.list("/url", val, {}));
}

TEST_F(K8S_Client_Test, OtherVerbsGiveWhatTheSessionGivesWhateverTheStatus) {
  const Value body = parsed(R"({"a": 1})");
  for (const bool result : {true, false}) {
    EXPECT_CALL(*session_, delete_("/url")).WillOnce(Return(result));
    EXPECT_CALL(*session_, post("/url", body)).WillOnce(Return(result));
    EXPECT_CALL(*session_, patch("/url", body, StrEq("application/merge-patch+json"))).WillOnce(Return(result));
    EXPECT_CALL(*session_, response_status()).WillOnce(Return(409));
    EXPECT_EQ(client_.delete_("/url"), result);
    EXPECT_EQ(client_.post("/url", body), result);
    EXPECT_EQ(client_.patch("/url", body, "application/merge-patch+json"), result);
    EXPECT_EQ(client_.get_response_code(), 409);
  }
}

/// The one line of a check that found no session.
void expect_no_session(const Log_Capture& log) {
  EXPECT_THAT(log.lines(), SizeIs(1));
  ASSERT_THAT(log.texts(LM_EMERGENCY), SizeIs(1));
  EXPECT_THAT(log.texts(LM_EMERGENCY).front(), StartsWith("Unexpected error in "));
  EXPECT_THAT(log.texts(LM_EMERGENCY).front(),
              ::testing::ContainsRegex("k8s/api/k8s_client.cpp:[0-9]+, sess_ is NULL:\n"));
}

TEST(K8S_Client_Without_Session, CanBeMadeAndLogsIt) {
  const Log_Capture log;
  const K8S_Client client(nullptr);
  expect_no_session(log);
}

TEST(K8S_Client_Without_Session, EachVerbLogsAndFails) {
  std::unique_ptr<K8S_Client> client;
  {
    const Log_Capture log;
    client = std::make_unique<K8S_Client>(nullptr);
  }
  Value val;
  const std::function<bool()> verbs[] = {[&] { return client->get("/url", val); },
                                         [&] { return client->list("/url", val, {}); },
                                         [&] { return client->delete_("/url"); },
                                         [&] { return client->post("/url", val); },
                                         [&] { return client->patch("/url", val, "application/json"); },
                                         [&] { return client->get_response_code() != 0; }};
  for (const auto& verb : verbs) {
    const Log_Capture log;
    EXPECT_FALSE(verb());
    expect_no_session(log);
  }
}

TEST(K8S_Client_Helper, NoSelectorsGiveAnEmptyText) {
  EXPECT_EQ(K8S_Client_Helper::gen_queries({}), "");
}

TEST(K8S_Client_Helper, TermsAreJoinedInTheOrderOfTheirKeys) {
  EXPECT_EQ(K8S_Client_Helper::gen_queries({{"labelSelector", {{"b", "2"}, {"a", "1"}}}}),
            "?labelSelector=a%3D1,b%3D2");
}

TEST(K8S_Client_Helper, FurtherSelectorsFollowInTheirOrder) {
  EXPECT_EQ(K8S_Client_Helper::gen_queries({{"labelSelector", {{"a", "1"}}}, {"fieldSelector", {{"b.c", "2"}}}}),
            "?labelSelector=a%3D1&fieldSelector=b.c%3D2");
}

TEST(K8S_Client_Helper, SelectorsOfOneTypeGiveTheParameterTwice) {
  EXPECT_EQ(K8S_Client_Helper::gen_queries({{"labelSelector", {{"a", "1"}}}, {"labelSelector", {{"b", "2"}}}}),
            "?labelSelector=a%3D1&labelSelector=b%3D2");
}

TEST(K8S_Client_Helper, ASelectorWithoutTermsKeepsItsEqualsSign) {
  EXPECT_EQ(K8S_Client_Helper::gen_queries({{"labelSelector", {}}}), "?labelSelector=");
}

TEST(K8S_Client_Helper, ASelectorWithoutATypeIsDropped) {
  EXPECT_EQ(K8S_Client_Helper::gen_queries({{"", {{"a", "1"}}}, {"labelSelector", {{"b", "2"}}}}),
            "?labelSelector=b%3D2");
  EXPECT_EQ(K8S_Client_Helper::gen_queries({{"", {{"a", "1"}}}}), "?");
}

TEST(K8S_Client_Helper, NothingIsEncodedButTheEqualsSign) {
  EXPECT_EQ(K8S_Client_Helper::gen_queries({{"a b", {{"c/d e", "f&g"}}}}), "?a b=c/d e%3Df&g");
}

}  // namespace
