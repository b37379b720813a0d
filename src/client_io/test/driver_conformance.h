#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "client_io/client_io_base.h"
#include "support/log_capture.h"

// What every storage driver has to do. A driver joins with
//
//   INSTANTIATE_TEST_SUITE_P(Name, Driver_Conformance, ::testing::Values(Pool_Maker([] { ... })));
//
// Included by one source of a test program.

/// Makes a client of one pool; called several times, all clients see the same objects.
typedef std::function<std::shared_ptr<Client_IO_Base>(const Client_IO_Base::Options&)> Client_Maker;
/// Makes a pool that is empty and goes when the result does.
typedef std::function<Client_Maker()> Pool_Maker;

class Driver_Conformance : public ::testing::TestWithParam<Pool_Maker> {
 protected:
  Driver_Conformance() : make_client_(GetParam()()), client_(make_client_({})) {}

  std::shared_ptr<Client_IO_Base> client(const Client_IO_Base::Options& options) { return make_client_(options); }

  bool store(const std::string& key, const std::string& bytes) {
    const auto writer = client_->create(key);
    return writer && writer->write(bytes.data(), bytes.size()) && writer->commit();
  }

  std::string fetch(const std::string& key) {
    const auto reader = client_->open(key);
    if (!reader) return "(missing)";
    std::string bytes(reader->size(), '\0');
    return reader->read(0, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) ? bytes : "(unreadable)";
  }

  std::vector<std::string> keys(const std::string& prefix = "") {
    std::vector<std::string> found;
    EXPECT_TRUE(client_->list(prefix, [&](const Client_IO_Base::Object_Info& info) {
      found.push_back(info.key);
      return true;
    }));
    return found;
  }

  /// What a test has logged, without the lines about repeated requests.
  static std::string said(const test_support::Log_Capture& log) {
    std::string text;
    for (const test_support::Log_Line& line : log.lines())
      if (line.priority != LM_INFO) text += line.text;
    return text;
  }

  typedef std::vector<std::string> Keys;

  const Client_Maker make_client_;
  const std::shared_ptr<Client_IO_Base> client_;
};

TEST_P(Driver_Conformance, WhatIsCommittedIsReadBack) {
  ASSERT_TRUE(store("a/b/object", "some bytes"));
  EXPECT_EQ(fetch("a/b/object"), "some bytes");
}

TEST_P(Driver_Conformance, BytesComeBackInTheOrderOfTheWrites) {
  const auto writer = client_->create("object");
  ASSERT_TRUE(writer);
  EXPECT_TRUE(writer->write("one", 3) && writer->write("", 0) && writer->write("two", 3));
  EXPECT_EQ(writer->size(), 6u);
  ASSERT_TRUE(writer->commit());
  EXPECT_EQ(fetch("object"), "onetwo");
}

TEST_P(Driver_Conformance, AnEmptyObjectIsAnObject) {
  ASSERT_TRUE(store("empty", ""));
  EXPECT_EQ(fetch("empty"), "");
  EXPECT_EQ(keys(), Keys{"empty"});
}

TEST_P(Driver_Conformance, NothingShowsBeforeTheCommit) {
  const auto writer = client_->create("a/object");
  ASSERT_TRUE(writer && writer->write("bytes", 5));
  EXPECT_EQ(keys(), Keys{});
  EXPECT_EQ(client_->open("a/object"), nullptr);
}

TEST_P(Driver_Conformance, AWriterThatIsNotCommittedLeavesNothing) {
  auto writer = client_->create("a/object");
  ASSERT_TRUE(writer && writer->write("bytes", 5));
  writer.reset();
  EXPECT_EQ(keys(), Keys{});
  EXPECT_TRUE(store("a/object", "other"));
}

TEST_P(Driver_Conformance, ASecondCommitOfAKeyFailsAndKeepsTheFirst) {
  const auto first = client_->create("object");
  const auto second = client_->create("object");
  ASSERT_TRUE(first && second && first->write("first", 5) && second->write("second", 6));
  ASSERT_TRUE(first->commit());
  test_support::Log_Capture log;
  EXPECT_FALSE(second->commit());
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
  EXPECT_EQ(fetch("object"), "first");
}

TEST_P(Driver_Conformance, WithOverwriteTheLastCommitStands) {
  Client_IO_Base::Options options;
  options.overwrite = true;
  ASSERT_TRUE(store("object", "first"));
  const auto other = client(options);
  const auto writer = other->create("object");
  ASSERT_TRUE(writer && writer->write("second", 6) && writer->commit());
  EXPECT_EQ(fetch("object"), "second");
}

TEST_P(Driver_Conformance, AnOpenReaderKeepsItsObjectWhenItIsReplaced) {
  Client_IO_Base::Options options;
  options.overwrite = true;
  ASSERT_TRUE(store("object", "first"));
  const auto reader = client_->open("object");
  const auto other = client(options);
  const auto writer = other->create("object");
  ASSERT_TRUE(reader && writer && writer->write("second", 6) && writer->commit());
  char bytes[5];
  EXPECT_EQ(reader->read(0, bytes, 5), 5);
  EXPECT_EQ(std::string(bytes, 5), "first");
}

TEST_P(Driver_Conformance, AMissingObjectIsToldByErrnoAlone) {
  test_support::Log_Capture log;
  EXPECT_EQ(client_->open("no/such"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(said(log), "");
}

TEST_P(Driver_Conformance, ThePartOfAKeyBeforeASlashIsNoObject) {
  ASSERT_TRUE(store("a/object", "bytes"));
  EXPECT_EQ(client_->open("a"), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST_P(Driver_Conformance, ReadsAtAnyOffsetAreShortOnlyAtTheEnd) {
  ASSERT_TRUE(store("object", "0123456789"));
  const auto reader = client_->open("object");
  ASSERT_TRUE(reader);
  EXPECT_EQ(reader->size(), 10u);
  char bytes[20];
  EXPECT_EQ(reader->read(3, bytes, 4), 4);
  EXPECT_EQ(std::string(bytes, 4), "3456");
  EXPECT_EQ(reader->read(8, bytes, 20), 2);
  EXPECT_EQ(std::string(bytes, 2), "89");
  EXPECT_EQ(reader->read(10, bytes, 1), 0);
  EXPECT_EQ(reader->read(UINT64_MAX, bytes, 1), 0);
}

TEST_P(Driver_Conformance, OneReaderServesSeveralThreads) {
  const std::string content(100000, 'x');
  ASSERT_TRUE(store("object", content + "tail"));
  const auto reader = client_->open("object");
  ASSERT_TRUE(reader);
  std::vector<std::thread> threads;
  std::atomic<int> right{0};
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      char bytes[4];
      for (int n = 0; n < 50; ++n) right += reader->read(100000, bytes, 4) == 4 && std::string(bytes, 4) == "tail";
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(right, 200);
}

TEST_P(Driver_Conformance, KeysAreListedInByteOrderAcrossDirectories) {
  for (const char* key : {"b", "a/z", "a.txt", "a/b/c", "a-b", "a0", "B"}) ASSERT_TRUE(store(key, "x"));
  EXPECT_EQ(keys(), (Keys{"B", "a-b", "a.txt", "a/b/c", "a/z", "a0", "b"}));
}

TEST_P(Driver_Conformance, AListingTellsSizes) {
  ASSERT_TRUE(store("object", "12345"));
  EXPECT_TRUE(client_->list("", [](const Client_IO_Base::Object_Info& info) {
    EXPECT_EQ(info.size, 5u);
    return true;
  }));
}

TEST_P(Driver_Conformance, APrefixNeedNotEndAtASlash) {
  for (const char* key : {"set/0001.1/a", "set/0001.10/a", "set/0002.1/a", "sets"}) ASSERT_TRUE(store(key, "x"));
  EXPECT_EQ(keys("set/0001."), (Keys{"set/0001.1/a", "set/0001.10/a"}));
  EXPECT_EQ(keys("set/0001.1/"), (Keys{"set/0001.1/a"}));
  EXPECT_EQ(keys("set"), (Keys{"set/0001.1/a", "set/0001.10/a", "set/0002.1/a", "sets"}));
  EXPECT_EQ(keys("nothing/"), Keys{});
}

TEST_P(Driver_Conformance, TheCallbackEndsAListing) {
  for (const char* key : {"a", "b", "c"}) ASSERT_TRUE(store(key, "x"));
  int calls = 0;
  EXPECT_FALSE(client_->list("", [&](const Client_IO_Base::Object_Info&) { return ++calls < 2; }));
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_EQ(calls, 2);
}

TEST_P(Driver_Conformance, AListedObjectMayBeRemovedOnTheWay) {
  for (const char* key : {"a/1", "a/2", "b"}) ASSERT_TRUE(store(key, "x"));
  int calls = 0;
  EXPECT_TRUE(client_->list("", [&](const Client_IO_Base::Object_Info& info) {
    ++calls;
    return client_->remove(info.key);
  }));
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(keys(), Keys{});
}

TEST_P(Driver_Conformance, AnEmptyPoolIsAnEmptyList) {
  EXPECT_EQ(keys(), Keys{});
}

TEST_P(Driver_Conformance, RemovingTwiceIsAsGoodAsOnce) {
  ASSERT_TRUE(store("a/b/object", "x"));
  EXPECT_TRUE(client_->remove("a/b/object"));
  EXPECT_TRUE(client_->remove("a/b/object"));
  EXPECT_EQ(fetch("a/b/object"), "(missing)");
}

TEST_P(Driver_Conformance, KeysThatAreNoneAreRefusedEverywhere) {
  const std::string nul("a\0b", 3);
  for (const std::string& key :
       {std::string(), std::string("/a"), std::string("a/"), std::string("a//b"), std::string("."), std::string("a/.."),
        std::string("../a"), std::string("a/./b"), nul, std::string("a\nb"), std::string(".unfinished-x"),
        std::string(256, 'x'), std::string(1025, '/')}) {
    test_support::Log_Capture log;
    EXPECT_EQ(client_->create(key), nullptr) << key;
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(client_->open(key), nullptr) << key;
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(client_->remove(key)) << key;
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(log.texts(LM_ERROR).size(), 3u) << log.all();
  }
}

TEST_P(Driver_Conformance, AComponentMayHave255BytesOfAnyKind) {
  const std::string key = "d\xff ~%/" + std::string(255, 'x');
  ASSERT_TRUE(store(key, "bytes"));
  EXPECT_EQ(fetch(key), "bytes");
  EXPECT_EQ(keys(), Keys{key});
}

TEST_P(Driver_Conformance, CancelEndsWritersReadersAndNewObjectsButNotCleaningUp) {
  ASSERT_TRUE(store("old", "bytes"));
  const auto writer = client_->create("new");
  const auto reader = client_->open("old");
  ASSERT_TRUE(writer && reader && writer->write("x", 1));
  test_support::Log_Capture log;
  client_->cancel();
  char byte;
  EXPECT_FALSE(writer->write("y", 1));
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_FALSE(writer->commit());
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_EQ(reader->read(0, &byte, 1), -1);
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_EQ(client_->create("another"), nullptr);
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_EQ(keys(), Keys{"old"});
  EXPECT_TRUE(client_->remove("old"));
  EXPECT_TRUE(client_->sweep(""));
  EXPECT_EQ(said(log), "");
}

TEST_P(Driver_Conformance, SweepingLeavesObjectsAndLivingWritersAlone) {
  ASSERT_TRUE(store("a/object", "bytes"));
  const auto writer = client_->create("b/other");
  ASSERT_TRUE(writer && writer->write("x", 1));
  EXPECT_TRUE(client_->sweep(""));
  EXPECT_TRUE(writer->commit());
  EXPECT_EQ(keys(), (Keys{"a/object", "b/other"}));
}

TEST_P(Driver_Conformance, WritersOfOneDirectoryDoNotDisturbEachOther) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([this, i] {
      for (int n = 0; n < 20; ++n) {
        const std::string key = "dir/" + std::to_string(i) + "-" + std::to_string(n);
        EXPECT_TRUE(store(key, "x"));
        EXPECT_TRUE(n % 2 == 0 || client_->remove(key));
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(keys().size(), 40u);
}
