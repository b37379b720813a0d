#include "k8s/api/k8s_token_review.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json_spirit/extract.h"
#include "k8s/api/test/in_cluster.h"
#include "support/kube_sim/cluster.h"

namespace {

using kube_sim::json_answer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
typedef K8S_Token_Review::Verdict Verdict;

/// The token of the one who may do everything, as the review's own.
class Powerful_Cluster : public kube_sim::Cluster {
 public:
  Powerful_Cluster() : kube_sim::Cluster(kube_sim::Cluster_Options{.token = "token-of-the-test"}) {}
};

class K8S_Token_Review_Test : public k8s_test::In_Cluster_T<Powerful_Cluster> {
 protected:
  K8S_Token_Review_Test() { api_.accounts().set("caller", {"system:serviceaccount:backup:requester"}); }

  Verdict review(const std::string& token, const std::vector<std::string>& audiences = {}) {
    K8S_Token_Review review(audiences);
    EXPECT_TRUE(review.init());
    return review.review(token, user_);
  }
  void answer_with(int status, const std::string& body) {
    front_.clear_faults();
    front_.fail({.count = 0}, {.answer = json_answer(status, body)});
  }

  std::string user_ = "before";
};

TEST_F(K8S_Token_Review_Test, GoodTokenTellsItsOwner) {
  EXPECT_EQ(Verdict::ACCEPTED, review("caller")) << log_.all();
  EXPECT_EQ("system:serviceaccount:backup:requester", user_);
  ASSERT_THAT(front_.requests(), SizeIs(1));
  const auto request = front_.requests()[0];
  EXPECT_EQ("POST", request.method);
  EXPECT_EQ("/apis/authentication.k8s.io/v1/tokenreviews", request.target);
  EXPECT_EQ("Bearer " + account_.token(), request.header("authorization"));
  EXPECT_EQ(R"({"apiVersion":"authentication.k8s.io/v1","kind":"TokenReview","spec":{"token":"caller"}})",
            request.body);
}

TEST_F(K8S_Token_Review_Test, UnknownAndExpiredTokensAreRefused) {
  EXPECT_EQ(Verdict::REFUSED, review("nobody"));
  api_.accounts().set("caller", {.user = "system:serviceaccount:backup:requester", .expired = true});
  EXPECT_EQ(Verdict::REFUSED, review("caller"));
  EXPECT_EQ("before", user_);
  EXPECT_THAT(log_.texts(LM_ERROR), IsEmpty());
}

TEST_F(K8S_Token_Review_Test, TokenHasToBeMadeForOneOfTheAudiences) {
  EXPECT_EQ(Verdict::REFUSED, review("caller", {"tessarin"}));
  api_.accounts().set("caller", {"system:serviceaccount:backup:requester", {"tessarin"}});
  EXPECT_EQ(Verdict::ACCEPTED, review("caller", {"x", "tessarin"}));
  EXPECT_EQ(Verdict::REFUSED, review("caller")) << "it is none for the API server";
}

TEST_F(K8S_Token_Review_Test, ServerThatDoesNotKnowAudiencesIsNotBelieved) {
  const std::string user = R"("user":{"username":"u"})";
  answer_with(201, R"({"status":{"authenticated":true,)" + user + "}}");
  EXPECT_EQ(Verdict::REFUSED, review("caller", {"tessarin"}));
  EXPECT_EQ(Verdict::ACCEPTED, review("caller"));
  answer_with(201, R"({"status":{"authenticated":true,"audiences":["other",7],)" + user + "}}");
  EXPECT_EQ(Verdict::REFUSED, review("caller", {"tessarin"}));
}

TEST_F(K8S_Token_Review_Test, WhatDoesNotSayYesIsNo) {
  for (const char* body :
       {"{}", R"({"status":{}})", R"({"status":{"authenticated":false,"user":{"username":"u"}}})",
        R"({"status":{"authenticated":"true","user":{"username":"u"}}})", R"({"status":{"authenticated":true}})",
        R"({"status":{"authenticated":true,"user":{"username":""}}})",
        R"({"status":{"authenticated":true,"user":{"username":7}}})",
        R"({"authenticated":true,"user":{"username":"u"}})"}) {
    answer_with(201, body);
    EXPECT_EQ(Verdict::REFUSED, review("caller")) << body;
  }
  EXPECT_EQ("before", user_);
}

TEST_F(K8S_Token_Review_Test, WithoutTheRightToAskNothingIsKnown) {
  account_.set_token("caller");
  EXPECT_EQ(Verdict::UNKNOWN, review("caller"));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("The API server did not review a token: status 403.\n"));
}

TEST_F(K8S_Token_Review_Test, AnyOtherAnswerIsNoVerdict) {
  for (const int status : {200, 401, 404, 500, 503}) {
    answer_with(status, R"({"status":{"authenticated":true,"user":{"username":"u"}}})");
    EXPECT_EQ(Verdict::UNKNOWN, review("caller")) << status;
  }
  answer_with(201, "nonsense");
  EXPECT_EQ(Verdict::UNKNOWN, review("caller"));
}

TEST_F(K8S_Token_Review_Test, ServerThatIsNotThereIsNoVerdict) {
  front_.fail({.count = 0}, {.end = kube_sim::Fault::End::RESET});
  EXPECT_EQ(Verdict::UNKNOWN, review("caller"));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(HasSubstr("Failed to send POST /apis/authentication.k8s.io/v1/")));
}

TEST_F(K8S_Token_Review_Test, ServerThatIsNotTrustedGetsNoToken) {
  account_.set_ca(kube_sim::Certificates().ca());
  EXPECT_EQ(Verdict::UNKNOWN, review("caller"));
  EXPECT_THAT(front_.requests(), IsEmpty());
}

TEST_F(K8S_Token_Review_Test, OwnTokenIsReadAgainWhenItIsDue) {
  K8S_Token_Review review({});
  ASSERT_TRUE(review.init());
  EXPECT_EQ(Verdict::ACCEPTED, review.review("caller", user_));
  account_.set_token("rotated");
  clock_.advance(std::chrono::seconds(61));
  review.review("caller", user_);
  EXPECT_EQ("Bearer rotated", front_.requests().back().header("authorization"));
}

TEST_F(K8S_Token_Review_Test, OutsideOfAClusterItCannotBeSetUp) {
  unsetenv("KUBERNETES_SERVICE_HOST");
  K8S_Token_Review review({});
  EXPECT_FALSE(review.init());
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("Failed to get k8s service host.\n"));
}

TEST_F(K8S_Token_Review_Test, TokensAreNotLogged) {
  api_.accounts().set("canary-of-a-caller", {"system:serviceaccount:backup:requester"});
  review("canary-of-a-caller");
  answer_with(500, R"({"spec":{"token":"canary-of-a-caller"}})");
  review("canary-of-a-caller");
  EXPECT_THAT(log_.all(), testing::Not(HasSubstr("canary")));
}

}  // namespace
