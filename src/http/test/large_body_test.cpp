// How much memory a large reply takes: that of its document, and no second time for its text. Each measurement is a
// process of its own.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>

#include "http/json_http_session.h"

namespace {

constexpr std::size_t mib = 1024 * 1024;
constexpr std::size_t strings = 64;

/// Answers with an array of 64 strings of 1 MiB, in pieces as they come from a socket, or with its beginning only.
class Large_Reply : public HTTP_Session {
 public:
  explicit Large_Reply(bool whole) : whole_(whole) {}

  HTTP_Exchange_Result exchange(const HTTP_Request&, const std::string*, HTTP_Response& response,
                                HTTP_Body_Sink& sink) override {
    static const std::string piece(16 * 1024, 'x');
    response.reset();
    sink.write("[");
    for (std::size_t i = 0; i < strings; ++i) {
      sink.write(i == 0 ? "\"" : ",\"");
      for (std::size_t size = 0; size < mib; size += piece.size()) sink.write(piece);
      sink.write("\"");
    }
    if (whole_) sink.write("]");
    response.status(200);
    return {HTTP_OUTCOME_ANSWERED, {}};
  }

 private:
  const bool whole_;
};

std::size_t peak_bytes() {
  rusage used;
  ::getrusage(RUSAGE_SELF, &used);
  return static_cast<std::size_t>(used.ru_maxrss) * 1024;
}

/// For a child process: ends it, with 0 if @a call was true and took at most @a limit bytes more than there were.
template <typename Call>
[[noreturn]] void exit_within(std::size_t limit, Call call) {
  const std::size_t before = peak_bytes();
  const bool good = call();
  const std::size_t taken = peak_bytes() - before;
  std::fprintf(stderr, "%s, %zu MiB\n", good ? "good" : "failed", taken / mib);
  ::_exit(good && taken <= limit ? 0 : 1);
}

HTTP_Request request(HTTP_METHOD_GET, "/", true);
HTTP_Response response;

TEST(Large_Body, TakesTheMemoryOfItsDocumentAndNotThatOfItsText) {
  JSON_HTTP_Session session(std::make_shared<Large_Reply>(true), 0, 0);
  EXPECT_EXIT(exit_within((strings + strings / 2) * mib,
                          [&] {
                            json_spirit::Value value;
                            return session.get(request, response, value) && value.get_array().size() == strings;
                          }),
              testing::ExitedWithCode(0), "good");
}

TEST(Large_Body, TakesNoMemoryWhenNobodyReadsIt) {
  JSON_HTTP_Session session(std::make_shared<Large_Reply>(true), 0, 0);
  EXPECT_EXIT(exit_within(8 * mib, [&] { return session.post(request, nullptr, response, nullptr); }),
              testing::ExitedWithCode(0), "good");
}

TEST(Large_Body, WithoutItsEndIsReadOnceToo) {
  JSON_HTTP_Session session(std::make_shared<Large_Reply>(false), 0, 0);
  EXPECT_EXIT(exit_within((strings + strings / 2) * mib,
                          [&] {
                            json_spirit::Value value;
                            return !session.get(request, response, value) && value.is_null();
                          }),
              testing::ExitedWithCode(0), "good");
}

}  // namespace
