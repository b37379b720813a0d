#include "support/kube_sim/accounts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/kube_sim/test/cluster_call.h"

namespace kube_sim {
namespace {

using testing::HasSubstr;

constexpr char reviews[] = "/apis/authentication.k8s.io/v1/tokenreviews";

class Accounts_Test : public testing::Test {
 protected:
  Accounts_Test() { cluster_.accounts().set("known", {"system:serviceaccount:backup:requester"}); }

  Answer review(const std::string& token, const std::string& audiences = "[]") {
    return call(cluster_, "POST", reviews,
                R"({"kind":"TokenReview","apiVersion":"authentication.k8s.io/v1","spec":{"token":")" + token +
                    R"(","audiences":)" + audiences + "}}",
                "application/json");
  }
  static bool authenticated(const Answer& answer) {
    bool is = false;
    json_spirit::pextract(json_of(answer))("/status/authenticated", is);
    return is;
  }

  Cluster cluster_;
};

TEST_F(Accounts_Test, TokenThatIsKnownIsToldWithItsOwner) {
  const Answer answer = review("known");
  EXPECT_EQ(answer.status, 201);
  EXPECT_TRUE(authenticated(answer));
  EXPECT_EQ(text_at(answer, "/kind"), "TokenReview");
  EXPECT_EQ(text_at(answer, "/spec/token"), "known");
  EXPECT_EQ(text_at(answer, "/status/user/username"), "system:serviceaccount:backup:requester");
  EXPECT_EQ(text_at(answer, "/status/user/groups/1"), "system:serviceaccounts:backup");
  EXPECT_EQ(text_at(answer, "/status/audiences/0"), "https://kubernetes.default.svc.cluster.local");
}

TEST_F(Accounts_Test, TokenThatIsNotIsNoFailureOfTheRequest) {
  const Answer answer = review("unknown");
  EXPECT_EQ(answer.status, 201);
  EXPECT_FALSE(authenticated(answer));
  EXPECT_EQ(text_at(answer, "/status/error"), "[invalid bearer token]");
  EXPECT_EQ(text_at(answer, "/status/user/username"), "");
}

TEST_F(Accounts_Test, TokensExpireAndGo) {
  cluster_.accounts().set("known", {.user = "system:serviceaccount:backup:requester", .expired = true});
  EXPECT_EQ(text_at(review("known"), "/status/error"), "[invalid bearer token, service account token has expired]");
  cluster_.accounts().remove("known");
  EXPECT_EQ(text_at(review("known"), "/status/error"), "[invalid bearer token]");
}

TEST_F(Accounts_Test, AudienceOfTheTokenHasToBeAskedFor) {
  cluster_.accounts().set("made-for", {"system:serviceaccount:backup:requester", {"tessarin", "other"}});
  EXPECT_THAT(text_at(review("made-for"), "/status/error"),
              HasSubstr(R"(token audiences ["tessarin" "other"] is invalid for the target audiences [")"));
  const Answer answer = review("made-for", R"(["x","tessarin"])");
  EXPECT_TRUE(authenticated(answer));
  EXPECT_EQ(count_at(answer, "/status/audiences"), 1u);
  EXPECT_EQ(text_at(answer, "/status/audiences/0"), "tessarin");
}

TEST_F(Accounts_Test, ReviewWithoutATokenIsABadRequest) {
  const Answer answer = review("");
  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(text_at(answer, "/message"), "token is required for TokenReview in authentication");
}

TEST_F(Accounts_Test, ReviewsCanOnlyBeMade) {
  EXPECT_EQ(call(cluster_, "GET", reviews).status, 405);
}

TEST_F(Accounts_Test, OwnerOfAnAccountMayNotReview) {
  Request request;
  request.method = "POST";
  set_target(request, reviews);
  request.headers["authorization"] = "Bearer known";
  const Answer answer = cluster_.answer(request);
  EXPECT_EQ(answer.status, 403);
  EXPECT_EQ(text_at(answer, "/message"),
            "tokenreviews.authentication.k8s.io is forbidden: User \"system:serviceaccount:backup:requester\" cannot "
            "create resource \"tokenreviews\" in API group \"authentication.k8s.io\" at the cluster scope");
}

}  // namespace
}  // namespace kube_sim
