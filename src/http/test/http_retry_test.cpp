// The policy of repetition, row by row.
#include "http/http_retry.h"

#include <gtest/gtest.h>

#include <optional>
#include <set>

#include "support/fake_clock.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
typedef std::optional<milliseconds> Wait;

constexpr int retries = 5;
constexpr int timeout = 300;
constexpr int all_methods[] = {HTTP_METHOD_GET, HTTP_METHOD_DELETE, HTTP_METHOD_POST, HTTP_METHOD_PATCH};

class Http_Retry : public testing::Test {
 protected:
  static HTTP_Response response(int status, const char* retry_after = nullptr) {
    HTTP_Response response;
    response.status(status);
    response.headers().put(HTTP_HEAD_RETRY_AFTER, retry_after, true);
    return response;
  }
  static Wait first(int method, HTTP_Outcome outcome) { return HTTP_Retry(method, retries, timeout).next(outcome, {}); }
  static Wait first(int method, int status, const char* retry_after = nullptr) {
    return HTTP_Retry(method, retries, timeout).next(HTTP_OUTCOME_ANSWERED, response(status, retry_after));
  }
  static bool repeats(int method) { return method == HTTP_METHOD_GET || method == HTTP_METHOD_DELETE; }

  test_support::Fake_Clock clock_{1'000'000'000};  // Sun, 09 Sep 2001 01:46:40 GMT
};

TEST_F(Http_Retry, without_a_connection_every_method_is_repeated) {
  for (const int method : all_methods) EXPECT_TRUE(first(method, HTTP_OUTCOME_NOT_SENT)) << method;
}

TEST_F(Http_Retry, a_broken_exchange_is_repeated_for_get_and_delete_alone) {
  for (const int method : all_methods)
    EXPECT_EQ(repeats(method), first(method, HTTP_OUTCOME_BROKEN).has_value()) << method;
}

TEST_F(Http_Retry, what_would_not_help_is_never_done) {
  for (const int method : all_methods) EXPECT_FALSE(first(method, HTTP_OUTCOME_FAILED)) << method;
}

TEST_F(Http_Retry, too_many_requests_is_repeated_by_every_method_when_the_server_says) {
  for (const int method : all_methods) {
    EXPECT_EQ(Wait(seconds(7)), first(method, 429, "7"));
    EXPECT_EQ(Wait(seconds(0)), first(method, 429, "0"));
    EXPECT_EQ(Wait(seconds(1)), first(method, 429));
    EXPECT_EQ(Wait(seconds(1)), first(method, 429, "soon"));
    EXPECT_EQ(Wait(seconds(1)), first(method, 429, ""));
  }
}

TEST_F(Http_Retry, a_server_error_is_repeated_for_get_and_delete_and_only_where_the_server_says_when) {
  for (const int status : {500, 502, 503, 504})
    for (const int method : all_methods) {
      EXPECT_EQ(repeats(method) ? Wait(seconds(3)) : Wait(), first(method, status, "3")) << method << ' ' << status;
      EXPECT_FALSE(first(method, status)) << method << ' ' << status;
    }
}

TEST_F(Http_Retry, no_other_status_is_repeated) {
  for (const int status : {200, 201, 204, 301, 302, 304, 400, 401, 403, 404, 409, 410, 415, 422, 501, 505})
    for (const int method : all_methods) EXPECT_FALSE(first(method, status, "1")) << method << ' ' << status;
}

TEST_F(Http_Retry, retry_after_may_be_a_date) {
  EXPECT_EQ(Wait(seconds(20)), first(HTTP_METHOD_GET, 503, "Sun, 09 Sep 2001 01:47:00 GMT"));
  EXPECT_EQ(Wait(seconds(20)), first(HTTP_METHOD_POST, 429, "Sunday, 09-Sep-01 01:47:00 GMT"));
}

TEST_F(Http_Retry, a_date_that_has_passed_is_now) {
  EXPECT_EQ(Wait(seconds(0)), first(HTTP_METHOD_GET, 503, "Sun, 09 Sep 2001 01:46:00 GMT"));
}

TEST_F(Http_Retry, the_back_off_doubles_and_a_random_half_is_taken_off) {
  for (int round = 0; round < 50; ++round) {
    HTTP_Retry retry(HTTP_METHOD_GET, retries, timeout);
    for (const int full : {250, 500, 1000, 2000, 4000}) {
      const Wait wait = retry.next(HTTP_OUTCOME_NOT_SENT, {});
      ASSERT_TRUE(wait);
      EXPECT_LE(*wait, milliseconds(full));
      EXPECT_GE(*wait, milliseconds(full / 2));
    }
  }
}

TEST_F(Http_Retry, the_back_off_of_many_clients_is_spread) {
  std::set<milliseconds> waits;
  for (int i = 0; i < 100; ++i) waits.insert(*first(HTTP_METHOD_GET, HTTP_OUTCOME_NOT_SENT));
  EXPECT_GT(waits.size(), 10u);
}

TEST_F(Http_Retry, ends_after_so_many_repeats_of_whatever_kind) {
  HTTP_Retry retry(HTTP_METHOD_GET, retries, timeout);
  EXPECT_TRUE(retry.next(HTTP_OUTCOME_NOT_SENT, {}));
  EXPECT_TRUE(retry.next(HTTP_OUTCOME_BROKEN, {}));
  EXPECT_TRUE(retry.next(HTTP_OUTCOME_ANSWERED, response(429)));
  EXPECT_TRUE(retry.next(HTTP_OUTCOME_ANSWERED, response(503, "1")));
  EXPECT_TRUE(retry.next(HTTP_OUTCOME_BROKEN, {}));
  EXPECT_FALSE(retry.next(HTTP_OUTCOME_NOT_SENT, {}));
  EXPECT_FALSE(retry.next(HTTP_OUTCOME_ANSWERED, response(429)));
}

TEST_F(Http_Retry, ends_when_the_time_is_over) {
  HTTP_Retry retry(HTTP_METHOD_GET, retries, timeout);
  clock_.advance(seconds(299));
  EXPECT_TRUE(retry.next(HTTP_OUTCOME_NOT_SENT, {}));
  clock_.advance(seconds(1));
  EXPECT_FALSE(retry.next(HTTP_OUTCOME_NOT_SENT, {}));
}

TEST_F(Http_Retry, a_wait_beyond_the_time_that_is_left_is_not_begun) {
  EXPECT_EQ(Wait(seconds(300)), first(HTTP_METHOD_GET, 429, "300"));
  EXPECT_FALSE(first(HTTP_METHOD_GET, 429, "301"));
  EXPECT_FALSE(first(HTTP_METHOD_GET, 429, "99999999999999999999"));
  HTTP_Retry retry(HTTP_METHOD_GET, retries, timeout);
  clock_.advance(seconds(200));
  EXPECT_FALSE(retry.next(HTTP_OUTCOME_ANSWERED, response(429, "101")));
  EXPECT_TRUE(retry.next(HTTP_OUTCOME_ANSWERED, response(429, "100")));
}

TEST_F(Http_Retry, without_repeats_there_are_none) {
  EXPECT_FALSE(HTTP_Retry(HTTP_METHOD_GET, 0, timeout).next(HTTP_OUTCOME_NOT_SENT, {}));
}

}  // namespace
