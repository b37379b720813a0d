#include "client_io/metered_client_io.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "kolt/metrics.h"
#include "support/memory_client_io.h"

namespace {

using test_support::Memory_Client_IO;
using test_support::Memory_Pool;

double metered_value(const std::string& series) {
  const std::string text = "\n" + kolt::metrics_text();
  const size_t at = text.find("\n" + series + " ");
  return at == std::string::npos ? 0 : std::stod(text.substr(at + series.size() + 2));
}

/// How much a series grows until the object is asked.
class Growth {
 public:
  explicit Growth(std::string series) : series_(std::move(series)), before_(metered_value(series_)) {}
  double operator()() const { return metered_value(series_) - before_; }

 private:
  const std::string series_;
  const double before_;
};

TEST(Metered_Client_IO_Test, OperationsAndBytesAreCounted) {
  Metered_Client_IO client(
      std::make_unique<Memory_Client_IO>(std::make_shared<Memory_Pool>(), Client_IO_Base::Options()));
  const Growth writes("tessarin_storage_operation_seconds_count{operation=\"write\"}");
  const Growth commits("tessarin_storage_operation_seconds_count{operation=\"commit\"}");
  const Growth reads("tessarin_storage_operation_seconds_count{operation=\"read\"}");
  const Growth written("tessarin_storage_bytes_total{direction=\"written\"}");
  const Growth read("tessarin_storage_bytes_total{direction=\"read\"}");

  const auto writer = client.create("a");
  ASSERT_TRUE(writer->write("12345", 5));
  ASSERT_TRUE(writer->commit());
  char text[3];
  ASSERT_EQ(3, client.open("a")->read(1, text, 3));

  EXPECT_EQ(1, writes());
  EXPECT_EQ(1, commits());
  EXPECT_EQ(1, reads());
  EXPECT_EQ(5, written());
  EXPECT_EQ(3, read());
}

TEST(Metered_Client_IO_Test, ObjectThatIsNotThereIsNoError) {
  Metered_Client_IO client(
      std::make_unique<Memory_Client_IO>(std::make_shared<Memory_Pool>(), Client_IO_Base::Options()));
  const Growth errors("tessarin_storage_errors_total{operation=\"open\",reason=\"other\"}");
  EXPECT_EQ(nullptr, client.open("none"));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(0, errors());
}

/// Fails each removal with an errno of the test's.
class Refusing_Client_IO : public Memory_Client_IO {
 public:
  explicit Refusing_Client_IO(int error)
      : Memory_Client_IO(std::make_shared<Memory_Pool>(), Client_IO_Base::Options()), error_(error) {}
  bool remove(const std::string&) override {
    errno = error_;
    return false;
  }

 private:
  const int error_;
};

TEST(Metered_Client_IO_Test, FailuresAreCountedByReasonAndErrnoStays) {
  const std::pair<int, const char*> cases[] = {{ENOSPC, "full"}, {EACCES, "refused"},           {ETIMEDOUT, "timeout"},
                                               {EIO, "io"},      {ECONNREFUSED, "unreachable"}, {EBADMSG, "damaged"},
                                               {EINVAL, "other"}};
  for (const auto& [error, reason] : cases) {
    Metered_Client_IO client(std::make_unique<Refusing_Client_IO>(error));
    const Growth errors(std::string("tessarin_storage_errors_total{operation=\"remove\",reason=\"") + reason + "\"}");
    EXPECT_FALSE(client.remove("a"));
    EXPECT_EQ(error, errno);
    EXPECT_EQ(1, errors()) << reason;
  }
}

TEST(Metered_Client_IO_Test, CanceledOperationIsNoError) {
  Metered_Client_IO client(std::make_unique<Refusing_Client_IO>(ECANCELED));
  const Growth errors("tessarin_storage_errors_total{operation=\"remove\",reason=\"other\"}");
  EXPECT_FALSE(client.remove("a"));
  EXPECT_EQ(0, errors());
}

}  // namespace
