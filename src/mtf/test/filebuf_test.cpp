#include "mtf/fs/filebuf.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <istream>
#include <ostream>

#include "support/temp_dir.h"

namespace {

using MTF_FS::ifilebuf;
using MTF_FS::ofilebuf;
using test_support::read_file;
using test_support::Temp_Dir;

constexpr int write_flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;

std::string pattern(size_t size) {
  std::string text(size, '\0');
  for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7 + i / 251);
  return text;
}

std::string get(ifilebuf& buf, size_t n) {
  std::string text(n, '\0');
  text.resize(static_cast<size_t>(buf.sgetn(text.data(), static_cast<std::streamsize>(n))));
  return text;
}

TEST(Ifilebuf, ReadsOfAllSizesGiveTheFile) {
  Temp_Dir dir;
  const std::string content = pattern(50000);
  const std::string path = dir.write("file", content);
  for (size_t step : {1, 7, 100, 4095, 4096, 5000, 50000, 60000}) {
    ifilebuf buf(1000);
    ASSERT_EQ(buf.open(path.c_str(), O_RDONLY | O_CLOEXEC, 0640), 0);
    std::string read;
    for (std::string part; !(part = get(buf, step)).empty();) read += part;
    EXPECT_EQ(read, content) << step;
    EXPECT_EQ(errno, 0);
  }
}

TEST(Ifilebuf, SmallAndLargeReadsMix) {
  Temp_Dir dir;
  const std::string content = pattern(30000);
  ifilebuf buf(1000);
  ASSERT_EQ(buf.open(dir.write("file", content).c_str(), O_RDONLY, 0), 0);
  std::string read = get(buf, 10);
  read += static_cast<char>(buf.sbumpc());
  read += get(buf, 20000);
  read += get(buf, 3);
  read += get(buf, 20000);
  EXPECT_EQ(read, content);
}

TEST(Ifilebuf, ServesAStream) {
  Temp_Dir dir;
  ifilebuf buf(16);
  ASSERT_EQ(buf.open(dir.write("file", "one two\nthree").c_str(), O_RDONLY, 0), 0);
  std::istream in(&buf);
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "one two");
  in >> line;
  EXPECT_EQ(line, "three");
}

TEST(Ifilebuf, AReadErrorIsToldFromTheEnd) {
  ifilebuf buf(16);
  // The address 0 of the own memory is a readable "regular file" that cannot be read.
  ASSERT_EQ(buf.open("/proc/self/mem", O_RDONLY, 0), 0);
  char byte;
  errno = 0;
  EXPECT_EQ(buf.sgetn(&byte, 1), 0);
  EXPECT_EQ(errno, EIO);
}

TEST(Ifilebuf, WhatIsNotThereIsNotOpened) {
  Temp_Dir dir;
  ifilebuf buf(16);
  EXPECT_EQ(buf.open((dir / "none").c_str(), O_RDONLY, 0), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(buf.is_open());
  char byte;
  EXPECT_EQ(buf.sgetn(&byte, 1), 0);
  EXPECT_EQ(errno, EBADF);
}

TEST(Ifilebuf, OnlyRegularFilesAreOpened) {
  Temp_Dir dir;
  dir.write("file", "x");
  ASSERT_EQ(::symlink("file", (dir / "link").c_str()), 0);
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
  ifilebuf buf(16);
  EXPECT_EQ(buf.open((dir / "link").c_str(), O_RDONLY, 0), -1);
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(buf.open((dir / "fifo").c_str(), O_RDONLY, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(buf.open(dir.path().c_str(), O_RDONLY, 0), -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(buf.open("/dev/zero", O_RDONLY, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_FALSE(buf.is_open());
}

TEST(Ifilebuf, OpensAnotherFileInPlaceOfTheFirst) {
  Temp_Dir dir;
  ifilebuf buf(16);
  ASSERT_EQ(buf.open(dir.write("one", "1111").c_str(), O_RDONLY, 0), 0);
  EXPECT_EQ(buf.sgetc(), '1');
  ASSERT_EQ(buf.open(dir.write("two", "2").c_str(), O_RDONLY, 0), 0);
  EXPECT_EQ(get(buf, 10), "2");
  EXPECT_EQ(buf.close(), 0);
  EXPECT_EQ(buf.close(), 0);
}

/// Whether the filesystem below the directory keeps holes.
bool keeps_holes(const Temp_Dir& dir) {
  const std::string path = dir.write("probe", "");
  struct stat st = {};
  return ::truncate(path.c_str(), 1 << 20) == 0 && ::stat(path.c_str(), &st) == 0 && st.st_blocks == 0;
}

TEST(Filebufs, HolesStayHoles) {
  Temp_Dir dir;
  if (!keeps_holes(dir)) GTEST_SKIP() << "no holes on this filesystem";
  constexpr uint64_t mib = 1 << 20;
  const std::string block = pattern(65536);
  ofilebuf out(1000);
  ASSERT_EQ(out.open((dir / "file").c_str(), write_flags, 0640), 0);
  ASSERT_TRUE(out.skip_to(mib));
  ASSERT_EQ(out.sputn(block.data(), 65536), 65536);
  ASSERT_TRUE(out.skip_to(8 * mib));
  ASSERT_EQ(out.sputn(block.data(), 65536), 65536);
  ASSERT_TRUE(out.skip_to(1024 * mib));
  ASSERT_EQ(out.close(), 0);
  struct stat st;
  ASSERT_EQ(::stat((dir / "file").c_str(), &st), 0);
  EXPECT_EQ(st.st_size, 1024 * 1048576);
  EXPECT_LE(st.st_blocks * 512, 4 * 65536);

  ifilebuf in(1000);
  ASSERT_EQ(in.open((dir / "file").c_str(), O_RDONLY, 0), 0);
  in.sgetc();
  uint64_t begin;
  uint64_t end;
  ASSERT_TRUE(in.next_data(0, begin, end));
  EXPECT_EQ(begin, mib);
  EXPECT_EQ(end, mib + 65536);
  EXPECT_EQ(get(in, 65536), block);
  ASSERT_TRUE(in.next_data(end, begin, end));
  EXPECT_EQ(begin, 8 * mib);
  EXPECT_EQ(get(in, 65536), block);
  ASSERT_TRUE(in.next_data(end, begin, end));
  EXPECT_EQ(begin, 1024 * mib);
  EXPECT_EQ(end, 1024 * mib);
  ASSERT_TRUE(in.next_data(2048 * mib, begin, end));
  EXPECT_EQ(begin, end);
}

TEST(Ifilebuf, AFileWithoutHolesIsOneStretch) {
  Temp_Dir dir;
  ifilebuf in(1000);
  ASSERT_EQ(in.open(dir.write("file", pattern(10000)).c_str(), O_RDONLY, 0), 0);
  uint64_t begin;
  uint64_t end;
  ASSERT_TRUE(in.next_data(0, begin, end));
  EXPECT_EQ(begin, 0u);
  EXPECT_EQ(end, 10000u);
  ASSERT_TRUE(in.next_data(end, begin, end));
  EXPECT_EQ(begin, end);
}

TEST(Ofilebuf, DoesNotSkipBackwards) {
  Temp_Dir dir;
  ofilebuf buf(1000);
  ASSERT_EQ(buf.open((dir / "file").c_str(), write_flags, 0640), 0);
  EXPECT_EQ(buf.sputn("abc", 3), 3);
  EXPECT_FALSE(buf.skip_to(2));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(buf.sputn("d", 1), 1);
  EXPECT_EQ(buf.close(), -1);
}

TEST(Ofilebuf, WritesOfAllSizesGiveTheFile) {
  Temp_Dir dir;
  const std::string content = pattern(50000);
  for (size_t step : {1, 7, 100, 1000, 4095, 4096, 5000, 50000}) {
    ofilebuf buf(1000);
    ASSERT_EQ(buf.open((dir / "file").c_str(), write_flags, 0640), 0);
    for (size_t at = 0; at < content.size(); at += step) {
      const std::streamsize n = static_cast<std::streamsize>(std::min(step, content.size() - at));
      ASSERT_EQ(buf.sputn(content.data() + at, n), n);
    }
    EXPECT_EQ(buf.close(), 0);
    EXPECT_EQ(read_file(dir / "file"), content) << step;
  }
}

TEST(Ofilebuf, SmallAndLargeWritesKeepTheirOrder) {
  Temp_Dir dir;
  const std::string large = pattern(20000);
  ofilebuf buf(1000);
  ASSERT_EQ(buf.open((dir / "file").c_str(), write_flags, 0640), 0);
  buf.sputc('a');
  buf.sputn("bc", 2);
  buf.sputn(large.data(), 20000);
  buf.sputn("d", 1);
  EXPECT_EQ(buf.close(), 0);
  EXPECT_EQ(read_file(dir / "file"), "abc" + large + "d");
}

TEST(Ofilebuf, ServesAStream) {
  Temp_Dir dir;
  ofilebuf buf(4);
  ASSERT_EQ(buf.open((dir / "file").c_str(), write_flags, 0640), 0);
  std::ostream out(&buf);
  out << "number " << 12345 << std::flush;
  EXPECT_TRUE(out.good());
  EXPECT_EQ(read_file(dir / "file"), "number 12345");
}

TEST(Ofilebuf, ADestroyedOneHasWrittenAll) {
  Temp_Dir dir;
  {
    ofilebuf buf(1000);
    ASSERT_EQ(buf.open((dir / "file").c_str(), write_flags, 0640), 0);
    buf.sputn("abc", 3);
  }
  EXPECT_EQ(read_file(dir / "file"), "abc");
}

TEST(Ofilebuf, CloseTellsALateErrorOnce) {
  ofilebuf buf(1000);
  ASSERT_EQ(buf.open("/dev/full", O_WRONLY, 0), 0);
  EXPECT_EQ(buf.sputn("x", 1), 1);
  errno = 0;
  EXPECT_EQ(buf.close(), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(buf.is_open());
  EXPECT_EQ(buf.close(), 0);
}

TEST(Ofilebuf, AfterAFailedWriteAllLaterOnesFail) {
  const std::string large = pattern(20000);
  ofilebuf buf(1000);
  ASSERT_EQ(buf.open("/dev/full", O_WRONLY, 0), 0);
  EXPECT_EQ(buf.sputn(large.data(), 20000), 0);
  errno = 0;
  EXPECT_EQ(buf.sputn("x", 1), 0);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(buf.pubsync(), -1);
  EXPECT_EQ(buf.close(), -1);
  EXPECT_EQ(errno, ENOSPC);
}

TEST(Ofilebuf, AFileThatMayNotGrowFailsAtTheLimit) {
  Temp_Dir dir;
  rlimit old;
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
  const auto old_handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit = old;
  limit.rlim_cur = 6000;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  const std::string large = pattern(20000);
  ofilebuf buf(1000);
  const int opened = buf.open((dir / "file").c_str(), write_flags, 0640);
  const std::streamsize written = buf.sputn(large.data(), 20000);
  const int error = errno;
  const int closed = buf.close();
  ::setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, old_handler);
  EXPECT_EQ(opened, 0);
  EXPECT_LT(written, 20000);
  EXPECT_EQ(error, EFBIG);
  EXPECT_EQ(closed, -1);
}

TEST(Ofilebuf, IsUsableAgainAfterAFailure) {
  Temp_Dir dir;
  ofilebuf buf(1000);
  ASSERT_EQ(buf.open("/dev/full", O_WRONLY, 0), 0);
  buf.sputn("x", 1);
  ASSERT_EQ(buf.open((dir / "file").c_str(), write_flags, 0640), 0);
  EXPECT_EQ(buf.sputn("abc", 3), 3);
  EXPECT_EQ(buf.close(), 0);
  EXPECT_EQ(read_file(dir / "file"), "abc");
}

TEST(Ofilebuf, NeitherFollowsALinkNorWaitsForAFifo) {
  Temp_Dir dir;
  dir.write("file", "safe");
  ASSERT_EQ(::symlink("file", (dir / "link").c_str()), 0);
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
  ofilebuf buf(16);
  EXPECT_EQ(buf.open((dir / "link").c_str(), write_flags, 0640), -1);
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(buf.open((dir / "fifo").c_str(), write_flags, 0640), -1);
  EXPECT_EQ(errno, ENXIO);
  EXPECT_EQ(read_file(dir / "file"), "safe");
}

TEST(Ofilebuf, WithoutAFileNothingIsWritten) {
  ofilebuf buf(16);
  EXPECT_EQ(buf.sputn("x", 1), 0);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(buf.sputn(pattern(20000).data(), 20000), 0);
  EXPECT_EQ(buf.pubsync(), -1);
  EXPECT_EQ(buf.close(), 0);
}

}  // namespace
