// A pool on a filesystem of 1 MiB, in the sandbox.
#include <sys/mount.h>

#include <cerrno>

#include "client_io/file_client_io.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

class Small_Pool : public ::testing::Test {
 protected:
  Small_Pool() { mounted_ = mount("tmpfs", dir_.path().c_str(), "tmpfs", 0, "size=1m") == 0; }
  ~Small_Pool() override {
    if (mounted_) umount(dir_.path().c_str());
  }

  const test_support::Temp_Dir dir_;
  bool mounted_;
};

TEST_F(Small_Pool, AFullPoolFailsTheObjectAndKeepsWhatIsThere) {
  ASSERT_TRUE(mounted_);
  File_Client_IO client(dir_.path(), Client_IO_Base::Options());
  const std::string some(100 * 1024, 'x');
  const auto old = client.create("old/object");
  ASSERT_TRUE(old && old->write(some.data(), some.size()) && old->commit());
  const auto writer = client.create("new/object");
  ASSERT_TRUE(writer);
  test_support::Log_Capture log;
  bool written = true;
  for (int i = 0; i < 20 && written; ++i) written = writer->write(some.data(), some.size());
  EXPECT_FALSE(written);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(writer->commit());
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_TRUE(
      log.has(LM_ERROR, "Failed to write object \"new/object\" in \"" + dir_.path() + "\": No space left on device.\n"))
      << log.all();
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_FALSE(fs::exists(dir_ / "new"));
  EXPECT_EQ(test_support::read_file(dir_ / "old/object"), some);
}

}  // namespace
