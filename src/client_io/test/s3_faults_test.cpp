#include <atomic>
#include <cerrno>
#include <thread>

#include "client_io/s3_part_budget.h"
#include "client_io/test/s3_fixture.h"
#include "support/fake_clock.h"
#include "support/fault_proxy.h"

namespace {

using client_io::S3_Part_Budget;
using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::Fake_Clock;
using test_support::Fault_Proxy;
using test_support::Network_Fault;
using test_support::S3_Call;
using test_support::s3_error;
using test_support::S3_Reply;

/// The service behind a network that fails as a test tells it.
class S3_Faults : public S3_Fixture {
 protected:
  S3_Faults() { pool_.default_s3["endpoint"] = "http://127.0.0.1:" + std::to_string(proxy_.port()); }

  /// Lets the first @a count requests that begin so fail.
  void fail(Network_Fault fault, int count, const std::string& beginning) {
    beginning_ = beginning;
    fault_ = fault;
    left_ = count;
  }
  /// Whether all of them came.
  bool all_failed() const { return left_ <= 0; }

  /// Runs @a work and gives how long it took.
  template <typename Work>
  static milliseconds time_of(const Work& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
  }

  /// Cancels a client from another thread while @a work runs, and expects that it ends soon.
  template <typename Work>
  void expect_cancel_ends(Client_IO_Base& client, const Work& work) {
    std::chrono::steady_clock::time_point canceled;
    std::thread other([&] {
      std::this_thread::sleep_for(milliseconds(300));
      canceled = std::chrono::steady_clock::now();
      client.cancel();
    });
    errno = 0;
    work();
    const int error = errno;
    const auto end = std::chrono::steady_clock::now();
    other.join();
    EXPECT_EQ(error, ECANCELED);
    EXPECT_LT(end - canceled, seconds(1));
  }

  std::string beginning_;
  std::atomic<Network_Fault> fault_{Network_Fault::NONE};
  std::atomic<int> left_{0};
  Fault_Proxy proxy_{service_.port(), [this](const std::string& line) {
                       return line.starts_with(beginning_) && left_-- > 0 ? fault_.load() : Network_Fault::NONE;
                     }};
};

TEST_F(S3_Faults, WritingRidesOutWhatPasses) {
  for (const Network_Fault fault : {Network_Fault::RESET_IN_REQUEST, Network_Fault::LOSE_ANSWER,
                                    Network_Fault::RESET_IN_ANSWER, Network_Fault::CUT_ANSWER, Network_Fault::CUT_HEAD,
                                    Network_Fault::ANSWER_500, Network_Fault::ANSWER_503, Network_Fault::ANSWER_429}) {
    for (const char* request : {"HEAD", "PUT"}) {
      Fake_Clock clock;
      Log_Capture log;
      const std::string key = std::to_string(static_cast<int>(fault)) + request;
      fail(fault, 2, request);
      EXPECT_TRUE(store(*client(), key, "bytes")) << log.all();
      EXPECT_TRUE(all_failed()) << key;
      EXPECT_EQ(service_.objects().at("pool/root/" + key).bytes, "bytes");
      EXPECT_EQ(log.texts(LM_ERROR).size(), 0u) << log.all();
    }
  }
}

TEST_F(S3_Faults, AnUploadInPartsRidesOutWhatPasses) {
  const std::string bytes = mebibytes(17);
  int number = 0;
  for (const Network_Fault fault : {Network_Fault::RESET_IN_REQUEST, Network_Fault::LOSE_ANSWER,
                                    Network_Fault::CUT_HEAD, Network_Fault::ANSWER_503}) {
    for (const char* request : {"POST", "PUT"}) {
      Fake_Clock clock;
      Log_Capture log;
      const std::string key = std::to_string(++number);
      fail(fault, 3, request);
      EXPECT_TRUE(store(*client(), key, bytes)) << log.all();
      EXPECT_TRUE(all_failed()) << key;
      EXPECT_TRUE(service_.objects()["pool/root/" + key].bytes == bytes);
    }
  }
}

TEST_F(S3_Faults, ReadingAndListingRideOutWhatPasses) {
  const std::string bytes = mebibytes(1);
  service_.put("pool/root/a", bytes);
  for (const Network_Fault fault :
       {Network_Fault::LOSE_ANSWER, Network_Fault::RESET_IN_ANSWER, Network_Fault::CUT_ANSWER, Network_Fault::CUT_HEAD,
        Network_Fault::WRONG_LENGTH, Network_Fault::ANSWER_500, Network_Fault::ANSWER_503, Network_Fault::ANSWER_429}) {
    Fake_Clock clock;
    Log_Capture log;
    const auto one = client();
    fail(fault, 2, "GET");
    EXPECT_TRUE(fetch(*one, "a") == bytes) << log.all();
    EXPECT_TRUE(all_failed());
    fail(fault, 2, "GET");
    int keys = 0;
    EXPECT_TRUE(one->list("", [&](const Client_IO_Base::Object_Info&) { return ++keys == 1; })) << log.all();
    EXPECT_TRUE(all_failed());
    fail(fault, 2, "DELETE");
    EXPECT_TRUE(one->remove("b")) << log.all();
    EXPECT_LT(left_, 2);  // an answer without a body may come through
  }
}

// The answer to the last request got lost; the object is there, and ours. The connection was a kept one, so that
// libcurl tries again and nobody is told of the first try.
TEST_F(S3_Faults, AnObjectThatWasMadeByALostTryIsOurs) {
  Fake_Clock clock;
  Log_Capture log;
  fail(Network_Fault::LOSE_ANSWER, 1, "PUT");
  EXPECT_TRUE(store(*client(), "small", "bytes"));
  int completions = 0;
  service_.script([&](const S3_Call& call) -> std::optional<S3_Reply> {
    completions += call.method == "POST" && call.query.starts_with("uploadId");
    return {};
  });
  fail(Network_Fault::LOSE_ANSWER, 1, "POST /bucket/pool/root/large?uploadId");
  EXPECT_TRUE(store(*client(), "large", mebibytes(9)));
  EXPECT_EQ(completions, 2);
  EXPECT_EQ(service_.count("PUT", ""), 4u);  // two of the small one, two parts
  EXPECT_EQ(service_.objects().size(), 2u);
  EXPECT_EQ(log.all(), "");
}

TEST_F(S3_Faults, AnObjectThatWasReplacedByALostTryIsOurs) {
  Fake_Clock clock;
  options_.overwrite = true;
  service_.put("pool/root/large", "older");
  fail(Network_Fault::LOSE_ANSWER, 1, "POST /bucket/pool/root/large?uploadId");
  EXPECT_TRUE(store(*client(), "large", mebibytes(9)));
  EXPECT_EQ(service_.objects().at("pool/root/large").bytes.size(), size_t(9) << 20);
}

TEST_F(S3_Faults, AnObjectThatCannotBeLookedAtIsTakenBack) {
  Fake_Clock clock;
  int heads = 0;
  service_.script([&](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.method == "HEAD" && ++heads == 2) return s3_error(403, "");
    return {};
  });
  fail(Network_Fault::LOSE_ANSWER, 1, "PUT");
  Log_Capture log;
  EXPECT_FALSE(store(*client(), "a", "bytes"));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(service_.objects().size(), 0u);
}

TEST_F(S3_Faults, AConflictIsTriedAgain) {
  for (const char* code : {"ConditionalRequestConflict", "OperationAborted"}) {
    Fake_Clock clock;
    int puts = 0;
    service_.script([&](const S3_Call& call) -> std::optional<S3_Reply> {
      if (call.method == "PUT" && ++puts <= 2) return s3_error(409, code);
      return {};
    });
    EXPECT_TRUE(store(*client(), code, "bytes"));
    EXPECT_EQ(puts, 3);
  }
}

TEST_F(S3_Faults, AnUploadThatTheServiceDroppedIsAFailureOfItsOwn) {
  Fake_Clock clock;
  int completions = 0;
  service_.script([&](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.method != "POST" || !call.query.starts_with("uploadId")) return {};
    return ++completions == 1 ? s3_error(409, "ConditionalRequestConflict") : s3_error(404, "NoSuchUpload");
  });
  Log_Capture log;
  EXPECT_FALSE(store(*client(), "a", mebibytes(9)));
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(log.texts(LM_ERROR),
            std::vector<std::string>{"Failed to commit object \"a\" in \"s3://bucket/pool/root/\": Input/output error "
                                     "(404 NoSuchUpload).\n"});
}

TEST_F(S3_Faults, AnObjectOfAnotherWriterIsNotTakenForOurs) {
  Fake_Clock clock;
  int puts = 0;
  service_.script([&](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.method != "PUT" || ++puts != 1) return {};
    service_.put("pool/root/a", "first");
    return s3_error(500, "InternalError");
  });
  Log_Capture log;
  EXPECT_FALSE(store(*client(), "a", "second"));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(service_.objects().at("pool/root/a").bytes, "first");
}

TEST_F(S3_Faults, WhatWasMadeButNeverToldIsTakenBack) {
  Fake_Clock clock;
  options_.max_seconds_retry = 0;
  fail(Network_Fault::LOSE_ANSWER, 2, "PUT");  // also the try of libcurl
  Log_Capture log;
  EXPECT_FALSE(store(*client(), "a", "bytes"));
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(service_.count("PUT"), 2u);
  EXPECT_EQ(service_.objects().size(), 0u);
}

// A request that takes long is answered with 200 before the service knows how it ends.
TEST_F(S3_Faults, AnErrorBehindA200IsOne) {
  Fake_Clock clock;
  int completions = 0;
  service_.script([&](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.method != "POST" || !call.query.starts_with("uploadId") || ++completions > 1) return {};
    return s3_error(200, "InternalError");
  });
  EXPECT_TRUE(store(*client(), "a", mebibytes(9)));
  EXPECT_EQ(completions, 2);
}

TEST_F(S3_Faults, BytesThatChangedOnTheWayAreSentAgain) {
  Fake_Clock clock;
  int puts = 0;
  service_.script([&](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.method != "PUT" || ++puts > 1) return {};
    return S3_Reply{200, {{"ETag", "\"00000000000000000000000000000000\""}}, ""};
  });
  EXPECT_TRUE(store(*client(), "a", "bytes"));
  EXPECT_EQ(puts, 2);
}

TEST_F(S3_Faults, TheServiceTellsHowLongToWait) {
  Fake_Clock clock;
  int heads = 0;
  service_.script([&](const S3_Call&) -> std::optional<S3_Reply> {
    if (++heads > 2) return {};
    return S3_Reply{503, {{"Retry-After", heads == 1 ? "7" : "100"}}, ""};
  });
  Log_Capture log;
  EXPECT_EQ(client()->open("a"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  milliseconds slept{0};
  for (const milliseconds span : clock.sleeps()) slept += span;
  EXPECT_EQ(slept, seconds(107));
  EXPECT_TRUE(log.has(LM_INFO,
                      "HEAD of object \"pool/root/a\" in \"s3://bucket/pool/root/\" failed (503), again in 7 "
                      "second(s).\n"))
      << log.all();
}

TEST_F(S3_Faults, AServiceThatStaysAwayIsGivenUp) {
  Fake_Clock clock;
  options_.max_seconds_retry = 60;
  proxy_.refuse(true);
  const auto one = client();
  Log_Capture log;
  EXPECT_FALSE(store(*one, "a", "bytes"));
  EXPECT_EQ(errno, ECONNREFUSED);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
  EXPECT_TRUE(
      log.has_containing(LM_ERROR, "Failed to commit object \"a\" in \"s3://bucket/pool/root/\": Connection refused ("))
      << log.all();
  milliseconds slept{0};
  for (const milliseconds span : clock.sleeps()) slept += span;
  EXPECT_LE(slept, seconds(60));
  EXPECT_GE(slept, seconds(28));
}

TEST_F(S3_Faults, TakingBackWhatFailedWaitsForNothing) {
  Fake_Clock clock;
  options_.max_seconds_retry = 60;
  options_.overwrite = true;
  proxy_.refuse(true);
  Log_Capture log;
  EXPECT_FALSE(store(*client(), "a", "bytes"));
  milliseconds slept{0};
  for (const milliseconds span : clock.sleeps()) slept += span;
  EXPECT_LE(slept, seconds(60));
}

TEST_F(S3_Faults, AServiceThatComesBackInTimeIsNotMissed) {
  const auto one = client();
  const auto writer = one->create("a");
  const std::string bytes = mebibytes(20);
  ASSERT_TRUE(writer && writer->write(bytes.data(), bytes.size()));
  proxy_.refuse(true);
  std::thread other([&] {
    std::this_thread::sleep_for(milliseconds(1500));
    proxy_.refuse(false);
  });
  Log_Capture log;
  EXPECT_TRUE(writer->commit()) << log.all();
  other.join();
  EXPECT_TRUE(service_.objects().at("pool/root/a").bytes == bytes);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 0u) << log.all();
}

TEST_F(S3_Faults, AFailedPartIsToldByTheNextCallOnce) {
  service_.script([](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.query.starts_with("partNumber=")) return s3_error(507, "");
    return {};
  });
  const auto one = client();
  const auto writer = one->create("a");
  const std::string bytes = mebibytes(9);
  Log_Capture log;
  ASSERT_TRUE(writer && writer->write(bytes.data(), bytes.size()));
  EXPECT_FALSE(writer->commit());
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(writer->write("x", 1));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
  EXPECT_EQ(service_.uploads().size(), 0u);
  EXPECT_EQ(service_.objects().size(), 0u);
}

TEST_F(S3_Faults, SilenceIsBrokenOff) {
  Fake_Clock clock;
  options_.socket_timeout_seconds = 1;
  fail(Network_Fault::SILENCE, 1, "HEAD");
  Log_Capture log;
  EXPECT_EQ(client()->open("a"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(log.has_containing(LM_INFO, "(no progress for too long), again in ")) << log.all();
}

TEST_F(S3_Faults, SlowIsNotSilent) {
  options_.socket_timeout_seconds = 2;
  service_.put("pool/root/a", "0123456789");
  const auto one = client();
  fail(Network_Fault::SLOW, 1, "GET");
  std::thread other([&] {
    std::this_thread::sleep_for(seconds(4));
    one->cancel();
  });
  Log_Capture log;
  EXPECT_EQ(one->open("a"), nullptr);
  EXPECT_EQ(errno, ECANCELED);
  other.join();
  EXPECT_EQ(log.all(), "");
}

TEST_F(S3_Faults, CancelEndsAReadInSilence) {
  service_.put("pool/root/a", mebibytes(1));
  const auto one = client();
  const auto reader = one->open("a");
  ASSERT_TRUE(reader);
  fail(Network_Fault::SILENCE, 1, "GET");
  Log_Capture log;
  char byte;
  expect_cancel_ends(*one, [&] { EXPECT_EQ(reader->read(0, &byte, 1), -1); });
  EXPECT_EQ(log.all(), "");
}

TEST_F(S3_Faults, CancelEndsAReadThatComesByteByByte) {
  service_.put("pool/root/a", mebibytes(1));
  const auto one = client();
  const auto reader = one->open("a");
  ASSERT_TRUE(reader);
  fail(Network_Fault::SLOW, 1, "GET");
  std::string bytes(1 << 20, '\0');
  expect_cancel_ends(*one, [&] { EXPECT_EQ(reader->read(0, bytes.data(), bytes.size()), -1); });
}

TEST_F(S3_Faults, CancelEndsACommitThatWaitsForItsNextTry) {
  proxy_.refuse(true);
  const auto one = client();
  const auto writer = one->create("a");
  ASSERT_TRUE(writer && writer->write("x", 1));
  Log_Capture log;
  expect_cancel_ends(*one, [&] { EXPECT_FALSE(writer->commit()); });
  EXPECT_EQ(log.texts(LM_ERROR).size(), 0u) << log.all();
}

TEST_F(S3_Faults, CancelEndsAWriteThatWaitsForRoom) {
  const std::string bytes = mebibytes(8);
  fail(Network_Fault::SILENCE, 1000, "PUT");
  // What is taken from a writer is what it has in memory: a part more than are on their way.
  for (const auto& [buffer, most] : {std::pair(0, 16), std::pair(10, 16), std::pair(16, 24), std::pair(1 << 20, 32)}) {
    options_.resumption_buffer_size = size_t(buffer) << 20;
    const auto one = client();
    const auto writer = one->create("a");
    ASSERT_TRUE(writer);
    size_t written = 0;
    expect_cancel_ends(*one, [&] {
      while (writer->write(bytes.data(), bytes.size())) written += bytes.size();
    });
    EXPECT_LE(written, size_t(most) << 20);
  }
  EXPECT_EQ(service_.objects().size(), 0u);
}

TEST_F(S3_Faults, AllWritersTogetherKeepToOneBudget) {
  const std::string bytes = mebibytes(8);
  options_.resumption_buffer_size = size_t(24) << 20;
  fail(Network_Fault::SILENCE, 1000, "PUT");
  const auto one = client();
  std::atomic<size_t> written{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 5; ++i)
    threads.emplace_back([&, i] {
      const auto writer = one->create(std::to_string(i));
      while (writer->write(bytes.data(), bytes.size())) written += bytes.size();
    });
  std::this_thread::sleep_for(seconds(2));
  EXPECT_LE(written, 5 * bytes.size() + S3_Part_Budget::size);
  one->cancel();
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(S3_Part_Budget::take(S3_Part_Budget::size));  // nothing of it got lost
  S3_Part_Budget::give_back(S3_Part_Budget::size);
}

TEST_F(S3_Faults, AWriterThatGetsNothingOfTheBudgetGoesOn) {
  ASSERT_TRUE(S3_Part_Budget::take(S3_Part_Budget::size));
  EXPECT_TRUE(store(*client(), "a", mebibytes(30)));
  S3_Part_Budget::give_back(S3_Part_Budget::size);
}

TEST_F(S3_Faults, AfterACancelTheUploadIsTakenBack) {
  const auto one = client();
  auto writer = one->create("a");
  const std::string bytes = mebibytes(20);
  ASSERT_TRUE(writer && writer->write(bytes.data(), bytes.size()));
  one->cancel();
  EXPECT_FALSE(writer->commit());
  EXPECT_EQ(errno, ECANCELED);
  writer.reset();
  EXPECT_EQ(service_.uploads().size(), 0u);
}

// Cleaning up after a cancel tries again, but waits for nothing.
TEST_F(S3_Faults, CleaningUpAfterACancelEndsSoon) {
  proxy_.refuse(true);
  const auto one = client();
  one->cancel();
  Log_Capture log;
  EXPECT_LT(time_of([&] { EXPECT_FALSE(one->remove("a")); }), seconds(1));
  EXPECT_EQ(errno, ECONNREFUSED);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
}

TEST_F(S3_Faults, SilenceAfterACancelIsNotWaitedForLong) {
  const auto one = client();
  auto writer = one->create("a");
  ASSERT_TRUE(writer && writer->write("x", 1));
  fail(Network_Fault::SILENCE, 1000, "");
  Log_Capture log;
  expect_cancel_ends(*one, [&] { EXPECT_FALSE(writer->commit()); });
  EXPECT_EQ(log.all(), "");
  EXPECT_LT(time_of([&] { EXPECT_FALSE(one->remove("a")); }), seconds(5));
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_EQ(log.texts(LM_ERROR),
            std::vector<std::string>{"Failed to remove object \"a\" in \"s3://bucket/pool/root/\": "
                                     "Connection timed out (no answer).\n"});
}

TEST_F(S3_Faults, WhatBeganBeforeACancelGetsItsTimeFromTheCancelOn) {
  const auto one = client();
  service_.script([](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.method == "GET") std::this_thread::sleep_for(milliseconds(4500));
    return {};
  });
  std::thread canceler([&] {
    std::this_thread::sleep_for(seconds(3));
    one->cancel();
  });
  Log_Capture log;
  EXPECT_TRUE(one->list("", [](const Client_IO_Base::Object_Info&) { return true; })) << log.all();
  canceler.join();
  EXPECT_TRUE(one->remove("a")) << log.all();
  EXPECT_EQ(log.all(), "");
}

// Each channel of a job has a client of its own, and all are canceled together.
TEST_F(S3_Faults, SilenceAfterACancelIsFoundOutOnceForAll) {
  const auto one = client();
  const auto other = client();
  auto writer = other->create("b");
  const std::string bytes = mebibytes(9);
  ASSERT_TRUE(writer && writer->write(bytes.data(), bytes.size()));
  const auto later = client();
  one->cancel();
  other->cancel();
  fail(Network_Fault::SILENCE, 1000, "");
  Log_Capture log;
  EXPECT_FALSE(one->remove("a"));
  EXPECT_EQ(errno, ETIMEDOUT);
  const int asked = proxy_.requests();
  for (const auto& canceled : {one, other}) {
    EXPECT_FALSE(canceled->remove("a"));
    EXPECT_EQ(errno, ECANCELED);
    EXPECT_FALSE(canceled->list("", [](const Client_IO_Base::Object_Info&) { return true; }));
    EXPECT_EQ(errno, ECANCELED);
    EXPECT_FALSE(canceled->sweep(""));
    EXPECT_EQ(errno, ECANCELED);
  }
  writer.reset();
  EXPECT_EQ(proxy_.requests(), asked);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
  left_ = 0;
  later->cancel();
  EXPECT_TRUE(later->remove("a"));
}

}  // namespace
