#include "http/pending_answer.h"

#include <gtest/gtest.h>

namespace {

class Pending_Answer_Test : public testing::Test {
 protected:
  int arrivals_ = 0;
  Pending_Answer answer_{[this] { ++arrivals_; }};
  unsigned status_ = 1;
  std::string body_ = "untouched";
};

TEST_F(Pending_Answer_Test, FirstAnswerCounts) {
  EXPECT_FALSE(answer_.has_arrived());
  EXPECT_EQ(0, answer_.reply(200, "first"));
  EXPECT_EQ(-1, answer_.reply(500, "second"));
  EXPECT_TRUE(answer_.has_arrived());
  EXPECT_TRUE(answer_.end(status_, body_));
  EXPECT_EQ(200u, status_);
  EXPECT_EQ("first", body_);
  EXPECT_EQ(1, arrivals_);
}

TEST_F(Pending_Answer_Test, AnswerAfterTheEndIsRefused) {
  EXPECT_FALSE(answer_.end(status_, body_));
  EXPECT_EQ(-1, answer_.reply(200, "late"));
  EXPECT_EQ(1u, status_);
  EXPECT_EQ("untouched", body_);
  EXPECT_EQ(0, arrivals_);
}

}  // namespace
