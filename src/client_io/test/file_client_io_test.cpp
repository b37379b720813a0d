#include "client_io/file_client_io.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "client_io/object_key.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

class File_Client_IO_Test : public ::testing::Test {
 protected:
  bool store(const std::string& key, const std::string& bytes) {
    const auto writer = client_.create(key);
    return writer && writer->write(bytes.data(), bytes.size()) && writer->commit();
  }
  mode_t mode(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
  }
  // What stands below the root, directories and all.
  std::vector<std::string> everything() {
    std::vector<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(root_))
      found.push_back(entry.path().lexically_relative(root_).string());
    std::sort(found.begin(), found.end());
    return found;
  }
  // Leaves the file that a writer leaves which dies with its process.
  void die_while_writing(const std::string& key) {
    const pid_t child = fork();
    if (child == 0) {
      const auto writer = client_.create(key);
      _exit(writer && writer->write("half", 4) ? 0 : 1);
    }
    int status = 1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
  }

  const test_support::Temp_Dir dir_;
  const std::string root_ = dir_ / "deep/er/pool";
  File_Client_IO client_{root_, Client_IO_Base::Options()};
};

TEST_F(File_Client_IO_Test, TheRootAndItsParentsAreMadeByTheFirstObject) {
  EXPECT_FALSE(fs::exists(dir_ / "deep"));
  ASSERT_TRUE(store("a/object", "bytes"));
  EXPECT_EQ(test_support::read_file(root_ + "/a/object"), "bytes");
}

TEST_F(File_Client_IO_Test, DirectoriesAndFilesAreForTheOwnerAlone) {
  ASSERT_TRUE(store("a/object", "bytes"));
  EXPECT_EQ(mode(dir_ / "deep"), 0700u);
  EXPECT_EQ(mode(root_), 0700u);
  EXPECT_EQ(mode(root_ + "/a"), 0700u);
  EXPECT_EQ(mode(root_ + "/a/object"), 0600u);
}

TEST_F(File_Client_IO_Test, AWriterWorksBesideTheFinalName) {
  const auto writer = client_.create("a/object");
  ASSERT_TRUE(writer);
  const std::vector<std::string> found = everything();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_TRUE(fs::path(found[1]).filename().string().starts_with(client_io::unfinished_mark)) << found[1];
  EXPECT_FALSE(client_io::is_key(found[1]));
}

TEST_F(File_Client_IO_Test, AnAbandonedWriterTakesItsDirectoriesWithIt) {
  ASSERT_TRUE(store("kept", "x"));
  { const auto writer = client_.create("a/b/c"); }
  EXPECT_EQ(everything(), std::vector<std::string>{"kept"});
}

TEST_F(File_Client_IO_Test, RemovingTheLastObjectRemovesItsDirectories) {
  ASSERT_TRUE(store("a/b/1", "x") && store("a/2", "x"));
  EXPECT_TRUE(client_.remove("a/b/1"));
  EXPECT_EQ(everything(), (std::vector<std::string>{"a", "a/2"}));
  EXPECT_TRUE(client_.remove("a/2"));
  EXPECT_TRUE(everything().empty());
  EXPECT_TRUE(fs::exists(root_));
}

TEST_F(File_Client_IO_Test, WhatADeadWriterLeftIsInvisibleUntilItIsSwept) {
  ASSERT_TRUE(store("kept", "x"));
  die_while_writing("a/b/object");
  EXPECT_EQ(everything().size(), 4u);
  EXPECT_TRUE(client_.list("", [](const Client_IO_Base::Object_Info& info) {
    EXPECT_EQ(info.key, "kept");
    return true;
  }));
  EXPECT_TRUE(client_.sweep(""));
  EXPECT_EQ(everything(), std::vector<std::string>{"kept"});
}

TEST_F(File_Client_IO_Test, ASweepKeepsToItsPrefix) {
  die_while_writing("a/object");
  die_while_writing("b/object");
  EXPECT_TRUE(client_.sweep("a/"));
  EXPECT_FALSE(fs::exists(root_ + "/a"));
  EXPECT_EQ(everything().size(), 2u);
}

TEST_F(File_Client_IO_Test, AWriterMayWorkWhileThePoolIsSwept) {
  std::atomic<bool> done{false};
  std::thread sweeper([&] {
    while (!done) EXPECT_TRUE(client_.sweep(""));
  });
  for (int i = 0; i < 100; ++i) {
    const auto writer = client_.create("a/b/c/object");
    EXPECT_TRUE(writer && writer->write("x", 1));
    if (writer && i % 2 == 0) {
      EXPECT_TRUE(writer->commit());
      EXPECT_TRUE(client_.remove("a/b/c/object"));
    }
  }
  done = true;
  sweeper.join();
}

TEST_F(File_Client_IO_Test, ForeignFilesAreNoObjectsAndStay) {
  ASSERT_TRUE(store("object", "x"));
  ASSERT_EQ(mkfifo((root_ + "/fifo").c_str(), 0600), 0);
  fs::create_symlink("object", root_ + "/link");
  std::vector<std::string> keys;
  EXPECT_TRUE(client_.list("", [&](const Client_IO_Base::Object_Info& info) {
    keys.push_back(info.key);
    return true;
  }));
  EXPECT_EQ(keys, std::vector<std::string>{"object"});
  EXPECT_TRUE(client_.sweep(""));
  EXPECT_EQ(everything(), (std::vector<std::string>{"fifo", "link", "object"}));
}

TEST_F(File_Client_IO_Test, ALinkInThePlaceOfAnObjectIsNotFollowed) {
  dir_.write("outside", "secret");
  ASSERT_TRUE(store("object", "x"));
  fs::create_symlink(dir_ / "outside", root_ + "/link");
  test_support::Log_Capture log;
  EXPECT_EQ(client_.open("link"), nullptr);
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
}

TEST_F(File_Client_IO_Test, ALinkInThePlaceOfADirectoryIsNotFollowed) {
  fs::create_directories(dir_ / "outside");
  ASSERT_TRUE(store("object", "x"));
  fs::create_directory_symlink(dir_ / "outside", root_ + "/a");
  test_support::Log_Capture log;
  EXPECT_FALSE(store("a/object", "x"));
  EXPECT_TRUE(fs::is_empty(dir_ / "outside"));
}

TEST_F(File_Client_IO_Test, AFifoInThePlaceOfAnObjectDoesNotBlock) {
  ASSERT_TRUE(store("object", "x"));
  ASSERT_EQ(mkfifo((root_ + "/fifo").c_str(), 0600), 0);
  test_support::Log_Capture log;
  EXPECT_EQ(client_.open("fifo"), nullptr);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(File_Client_IO_Test, AFailureNamesOperationKeyAndReasonOnce) {
  dir_.write("deep/er/pool/a", "a file where a directory should be");
  test_support::Log_Capture log;
  EXPECT_EQ(client_.create("a/object"), nullptr);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to create object \"a/object\" in \"" + root_ + "\": Not a directory.\n"))
      << log.all();
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(File_Client_IO_Test, AFileCutWhileItIsReadGivesAShortRead) {
  ASSERT_TRUE(store("object", "0123456789"));
  const auto reader = client_.open("object");
  ASSERT_EQ(truncate((root_ + "/object").c_str(), 4), 0);
  char bytes[10];
  EXPECT_EQ(reader->read(0, bytes, 10), 4);
}

}  // namespace
