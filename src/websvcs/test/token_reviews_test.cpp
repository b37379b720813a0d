#include "websvcs/token_reviews.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>

#include "support/fake_clock.h"

using std::chrono::seconds;
using testing::IsEmpty;
using Verdict = K8S_Token_Review::Verdict;

namespace {

/// Takes a verdict, for a test that waits for it.
class Told : public HTTP_Exchange {
 public:
  int reply(unsigned status, std::string) override {
    const std::lock_guard guard(lock_);
    status_ = status;
    told_.notify_all();
    return 0;
  }
  unsigned wait() {
    std::unique_lock guard(lock_);
    told_.wait_for(guard, seconds(20), [this] { return status_ != 0; });
    return status_;
  }

 private:
  std::mutex lock_;
  std::condition_variable told_;
  unsigned status_ = 0;
};

/// An API server that knows "good" and "stranger", is out of order at times, and can be made to wait.
class Server {
 public:
  Verdict operator()(const std::string& token, std::string& user) {
    std::unique_lock guard(lock_);
    ++questions;
    open_.wait(guard, [this] { return !held_; });
    if (out_of_order) return Verdict::UNKNOWN;
    if (token == "good") user = "system:serviceaccount:backup:requester";
    if (token == "stranger") user = "system:serviceaccount:other:requester";
    if (token == "admin") user = "backup/requester";
    return user.empty() ? Verdict::REFUSED : Verdict::ACCEPTED;
  }
  void hold(bool on) {
    const std::lock_guard guard(lock_);
    held_ = on;
    open_.notify_all();
  }

  std::atomic<int> questions{0};
  std::atomic<bool> out_of_order{false};

 private:
  std::mutex lock_;
  std::condition_variable open_;
  bool held_ = false;
};

class Token_Reviews_Test : public testing::Test {
 protected:
  Token_Reviews_Test() {
    const auto question = [this](const std::string& token, std::string& user) { return server_(token, user); };
    reviews_.start({question, question});
  }
  ~Token_Reviews_Test() override { server_.hold(false); }

  /// The verdict, however it comes.
  unsigned check(const std::string& token) {
    const auto told = std::make_shared<Told>();
    const unsigned known = reviews_.check(token, told);
    return known != 0 ? known : told->wait();
  }

  test_support::Fake_Clock clock_;
  Server server_;
  Token_Reviews reviews_{{"backup/requester", "a/b"}};
};

TEST_F(Token_Reviews_Test, AllowedAccountIsLetInAndNoOther) {
  EXPECT_EQ(200u, check("good"));
  EXPECT_EQ(403u, check("stranger"));
  EXPECT_EQ(403u, check("admin"));
  EXPECT_EQ(401u, check("unknown"));
}

TEST_F(Token_Reviews_Test, VerdictIsKnownForAWhile) {
  for (int i = 0; i < 3; ++i) EXPECT_EQ(200u, check("good"));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(401u, check("unknown"));
  EXPECT_EQ(2, server_.questions);
  clock_.advance(seconds(Token_Reviews::bad_seconds));
  EXPECT_EQ(200u, check("good"));
  EXPECT_EQ(401u, check("unknown"));
  EXPECT_EQ(3, server_.questions);
  clock_.advance(seconds(Token_Reviews::good_seconds - Token_Reviews::bad_seconds));
  EXPECT_EQ(200u, check("good"));
  EXPECT_EQ(4, server_.questions);
}

TEST_F(Token_Reviews_Test, WhoGuessesPushesOutNobody) {
  EXPECT_EQ(200u, check("good"));
  for (size_t i = 0; i < Token_Reviews::known_tokens + 10; ++i) check("guess " + std::to_string(i));
  const int before = server_.questions;
  EXPECT_EQ(200u, check("good"));
  EXPECT_EQ(before, server_.questions);
}

TEST_F(Token_Reviews_Test, ServerIsAskedOnceForAllWhoShowOneTokenAtATime) {
  server_.hold(true);
  std::vector<std::shared_ptr<Told>> callers;
  for (int i = 0; i < 5; ++i) {
    callers.push_back(std::make_shared<Told>());
    EXPECT_EQ(0u, reviews_.check("good", callers.back()));
  }
  server_.hold(false);
  for (const auto& caller : callers) EXPECT_EQ(200u, caller->wait());
  EXPECT_EQ(1, server_.questions);
}

TEST_F(Token_Reviews_Test, NobodyIsLetInWhileTheServerCannotBeAsked) {
  server_.out_of_order = true;
  EXPECT_EQ(503u, check("good"));
  EXPECT_EQ(503u, check("good")) << "told without a question";
  EXPECT_EQ(1, server_.questions);
  server_.out_of_order = false;
  clock_.advance(seconds(Token_Reviews::outage_seconds));
  EXPECT_EQ(200u, check("good"));
}

TEST_F(Token_Reviews_Test, KnownCallersAreServedWhileTheServerCannotBeAsked) {
  EXPECT_EQ(200u, check("good"));
  server_.out_of_order = true;
  EXPECT_EQ(503u, check("unknown"));
  EXPECT_EQ(200u, check("good"));
  clock_.advance(seconds(Token_Reviews::good_seconds));
  EXPECT_EQ(503u, check("good")) << "but not for ever";
}

TEST_F(Token_Reviews_Test, QueueIsBounded) {
  server_.hold(true);
  std::vector<std::shared_ptr<Told>> callers;
  unsigned last = 0;
  for (size_t i = 0; i < Token_Reviews::waiting_tokens + 3 && last == 0; ++i) {
    callers.push_back(std::make_shared<Told>());
    last = reviews_.check("token " + std::to_string(i), callers.back());
  }
  EXPECT_EQ(503u, last);
  EXPECT_GE(callers.size(), Token_Reviews::waiting_tokens);
  server_.hold(false);
  callers.pop_back();
  for (const auto& caller : callers) EXPECT_EQ(401u, caller->wait());
}

TEST_F(Token_Reviews_Test, WhoHasWaitedTooLongIsNotAskedForAnyMore) {
  server_.hold(true);
  const auto first = std::make_shared<Told>(), second = std::make_shared<Told>(), third = std::make_shared<Told>();
  reviews_.check("one", first);
  reviews_.check("two", second);
  while (server_.questions < 2) std::this_thread::yield();
  reviews_.check("good", third);
  clock_.advance(seconds(Token_Reviews::patience_seconds));
  server_.hold(false);
  EXPECT_EQ(401u, first->wait());
  EXPECT_EQ(503u, third->wait());
}

TEST(Verdict_Cache_Test, OldestGivesWay) {
  test_support::Fake_Clock clock;
  Verdict_Cache cache(2, 60);
  cache.put(digest_of("a"), 200);
  cache.put(digest_of("b"), 200);
  cache.put(digest_of("a"), 403);
  cache.put(digest_of("c"), 200);
  EXPECT_EQ(2u, cache.size());
  EXPECT_EQ(std::optional<unsigned>(403), cache.get(digest_of("a")));
  EXPECT_EQ(std::nullopt, cache.get(digest_of("b")));
}

TEST(Verdict_Cache_Test, ClockThatIsSetBackLetsVerdictsEnd) {
  test_support::Fake_Clock clock;
  Verdict_Cache cache(2, 60);
  cache.put(digest_of("a"), 200);
  clock.advance(-std::chrono::hours(1));
  EXPECT_EQ(std::nullopt, cache.get(digest_of("a")));
  EXPECT_EQ(0u, cache.size());
}

}  // namespace
