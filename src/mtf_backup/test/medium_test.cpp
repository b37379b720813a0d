#include <sys/wait.h>
#include <zstd.h>

#include <cerrno>
#include <cstdlib>

#include "mtf_backup/set/frame.h"
#include "mtf_backup/set/hash.h"
#include "mtf_backup/set/lzop_member.h"
#include "mtf_backup/set/medium_index.h"
#include "mtf_backup/test/store_fixture.h"
#include "support/temp_dir.h"

namespace {

using MTF_BACKUP::frame_size;
using MTF_BACKUP::Frame_View;
using MTF_BACKUP::Frame_Workers;
using MTF_BACKUP::Medium_Id;
using MTF_BACKUP::Medium_Reader;
using MTF_BACKUP::Medium_Writer;
using test_support::Fault_Plan;
using test_support::Faulty_Client_IO;
using test_support::Log_Capture;

class Medium : public Store_Fixture, public ::testing::WithParamInterface<Compression_Method> {
 protected:
  const Medium_Id id_ = medium_id(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Methods, Medium, ::testing::Values(COMPR_NONE, COMPR_AUTO, COMPR_LZOP, COMPR_ZSTD));

TEST_P(Medium, BytesComeBackWhateverTheirNumber) {
  for (const size_t n : {size_t(0), size_t(1), frame_size - 1, frame_size, frame_size + 1, 5 * frame_size + 77}) {
    pool_->objects.clear();
    const std::string bytes = some_bytes(n);
    ASSERT_TRUE(write_medium(id_, bytes));
    const auto reader = open_medium(id_);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->size(), n);
    EXPECT_TRUE(read_all(reader.get()) == bytes) << n;
  }
}

TEST_P(Medium, TellsItsTwoObjectsAsTheyAreStored) {
  Medium_Writer writer(client_, id_, 0, workers_);
  ASSERT_TRUE(writer.open() && append(writer, some_bytes(3 * frame_size)));
  EXPECT_EQ(writer.offset(), 3 * frame_size);
  ASSERT_TRUE(writer.finish());
  ASSERT_EQ(writer.objects().size(), 2u);
  EXPECT_EQ(writer.objects()[0].name, GetParam() == COMPR_NONE   ? "channel-000.mtf"
                                      : GetParam() == COMPR_LZOP ? "channel-000.mtf.lzo"
                                                                 : "channel-000.mtf.zst");
  EXPECT_EQ(writer.objects()[1].name, "channel-000.index");
  for (const auto& object : writer.objects()) {
    EXPECT_EQ(object.size, stored_size(id_.set_dir + "/" + object.name));
    EXPECT_EQ(object.hash.size(), 32u);
  }
  EXPECT_EQ(writer.stored_size(), writer.objects()[0].size);
}

TEST_P(Medium, ReadsAtAnyOffsetInAnyOrder) {
  const std::string bytes = some_bytes(9 * frame_size + 5);
  ASSERT_TRUE(write_medium(id_, bytes));
  const auto reader = open_medium(id_);
  std::minstd_rand random(7);
  std::string part(300000, '\0');
  for (int i = 0; i < 60; ++i) {
    const uint64_t offset = random() % bytes.size();
    const ssize_t got = reader->read(offset, part.data(), part.size());
    ASSERT_EQ(got, static_cast<ssize_t>(std::min<size_t>(part.size(), bytes.size() - offset)));
    ASSERT_TRUE(std::string_view(part.data(), static_cast<size_t>(got)) ==
                std::string_view(bytes).substr(offset, part.size()));
  }
  EXPECT_EQ(reader->read(bytes.size(), part.data(), 1), 0);
  EXPECT_EQ(reader->read(UINT64_MAX, part.data(), 1), 0);
  EXPECT_EQ(reader->read(0, part.data(), 0), 0);
}

TEST_P(Medium, AViewEndsWithItsFrameAndOutlivesTheReader) {
  const std::string bytes = some_bytes(2 * frame_size);
  ASSERT_TRUE(write_medium(id_, bytes));
  auto reader = open_medium(id_);
  Frame_View view;
  ASSERT_TRUE(reader->view(frame_size - 10, 100, view));
  EXPECT_EQ(view.size(), 10u);
  reader.reset();
  EXPECT_EQ(std::string(view.data(), 10), bytes.substr(frame_size - 10, 10));
}

TEST_P(Medium, ManyThreadsReadOneReader) {
  const std::string bytes = some_bytes(12 * frame_size);
  ASSERT_TRUE(write_medium(id_, bytes));
  const auto reader = open_medium(id_);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (size_t t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      std::string part(70000, '\0');
      for (uint64_t offset = t * part.size(); offset < bytes.size(); offset += 4 * part.size()) {
        const ssize_t got = reader->read(offset, part.data(), part.size());
        wrong += got < 0 || std::string_view(part.data(), static_cast<size_t>(got)) !=
                                std::string_view(bytes).substr(offset, part.size());
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST_P(Medium, MoreMediaThanBuffersDoNotWaitForEachOther) {
  Frame_Workers small(2, size_t(4) << 20);
  ASSERT_TRUE(small.open());
  std::vector<std::unique_ptr<Medium_Writer>> writers;
  for (unsigned channel = 0; channel < 6; ++channel) {
    writers.push_back(
        std::make_unique<Medium_Writer>(client_, Medium_Id{id_.set_dir, "uuid", channel, GetParam()}, 0, small));
    ASSERT_TRUE(writers.back()->open());
  }
  const std::string bytes = some_bytes(5 * frame_size / 2);
  for (auto& writer : writers) ASSERT_TRUE(append(*writer, bytes));
  for (auto& writer : writers) EXPECT_TRUE(writer->finish());
  std::vector<std::unique_ptr<Medium_Reader>> readers;
  for (unsigned channel = 0; channel < 6; ++channel)
    readers.push_back(open_medium({id_.set_dir, "uuid", channel, GetParam()}));
  for (auto& reader : readers) EXPECT_TRUE(read_all(reader.get()) == bytes);
}

TEST_P(Medium, OneThatIsNotFinishedLeavesNothing) {
  {
    Medium_Writer writer(client_, id_, 0, workers_);
    ASSERT_TRUE(writer.open() && append(writer, some_bytes(3 * frame_size + 5)));
  }
  { Medium_Writer never_opened(client_, id_, 0, workers_); }
  EXPECT_TRUE(pool_->objects.empty());
}

TEST_P(Medium, EveryFailureOfTheStorageFailsTheMediumAndLeavesNothing) {
  const std::string bytes = some_bytes(4 * frame_size);
  for (int nth = 0;; ++nth) {
    Log_Capture log;
    Fault_Plan plan(Fault_Plan::CREATE | Fault_Plan::WRITE | Fault_Plan::COMMIT, nth, ENOSPC);
    Faulty_Client_IO faulty(client_, plan);
    const bool written = write_medium(id_, bytes, &faulty);
    if (!plan.struck()) {
      EXPECT_TRUE(written);
      EXPECT_GE(nth, 8);  // two creations, four frames, the index, two commits
      break;
    }
    EXPECT_FALSE(written) << nth;
    EXPECT_EQ(errno, ENOSPC) << nth;
    EXPECT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
    EXPECT_TRUE(pool_->objects.empty()) << nth;
  }
}

TEST_P(Medium, AFailureStaysAndIsSeenByTheProducer) {
  Log_Capture log;
  Fault_Plan plan(Fault_Plan::WRITE, 0, EIO);
  Faulty_Client_IO faulty(client_, plan);
  Medium_Writer writer(faulty, id_, 0, workers_);
  ASSERT_TRUE(writer.open());
  EXPECT_FALSE(append(writer, some_bytes(60 * frame_size)));
  EXPECT_EQ(errno, EIO);
  char* at;
  size_t avail;
  EXPECT_FALSE(writer.space(at, avail));
  EXPECT_EQ(errno, EIO);
  EXPECT_FALSE(writer.finish());
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(log.lines().size(), 1u) << log.all();
}

TEST_P(Medium, ACancelEndsAWriterThatWaits) {
  Medium_Writer writer(client_, id_, 0, workers_);
  ASSERT_TRUE(writer.open());
  std::thread canceler([&] { client_.cancel(); });
  bool written = true;
  while (written) written = append(writer, some_bytes(frame_size));
  EXPECT_EQ(errno, ECANCELED);
  canceler.join();
}

TEST_P(Medium, EveryFailureOfAReadIsAnErrorAndTheNextReadWorks) {
  const std::string bytes = some_bytes(5 * frame_size);
  ASSERT_TRUE(write_medium(id_, bytes));
  for (int nth = 0;; ++nth) {
    Log_Capture log;
    Fault_Plan plan(Fault_Plan::OPEN | Fault_Plan::READ, nth);
    Faulty_Client_IO faulty(client_, plan);
    const auto reader = open_medium(id_, &faulty);
    const std::string read = read_all(reader.get());
    if (!plan.struck()) {
      EXPECT_GE(nth, 5);
      break;
    }
    EXPECT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
    EXPECT_TRUE(read == "(failed)" || read == bytes) << nth;  // what was fetched ahead is fetched once more
    if (reader) {
      EXPECT_TRUE(read_all(reader.get()) == bytes) << nth;
    }
  }
}

TEST_P(Medium, EveryDamageIsFoundAndNamed) {
  const std::string bytes = some_bytes(300);
  ASSERT_TRUE(write_medium(id_, bytes));
  const uint64_t medium_size = stored_size(medium_key(id_));
  const uint64_t index_size = stored_size(index_key(id_));
  for (const std::string& key : {medium_key(id_), index_key(id_)})
    damage_everywhere(key, [&](const std::string& what) {
      Log_Capture log;
      const auto reader = open_medium(id_, medium_size, index_size);
      EXPECT_EQ(read_all(reader.get()), "(failed)") << key << " " << what;
      EXPECT_EQ(errno, EBADMSG);
      EXPECT_EQ(log.lines().size(), 1u) << log.all();
      EXPECT_TRUE(log.has_containing(LM_ERROR, "Object \"" + key + "\" is damaged at offset ")) << log.all();
    });
}

TEST_P(Medium, ADamagedFrameIsToldOnceAndSparesTheOthers) {
  const std::string bytes = some_bytes(6 * frame_size);
  ASSERT_TRUE(write_medium(id_, bytes));
  std::string& stored = pool_->objects[medium_key(id_)];
  stored[stored.size() * 5 / 12] ^= 1;  // in the third frame
  const auto reader = open_medium(id_);
  Log_Capture log;
  std::string part(frame_size, '\0');
  int failed = 0;
  for (int round = 0; round < 2; ++round)
    for (size_t frame = 0; frame < 6; ++frame) {
      if (reader->read(frame * frame_size, part.data(), part.size()) < 0) {
        EXPECT_EQ(frame, 2u);
        ++failed;
      } else {
        EXPECT_TRUE(part == bytes.substr(frame * frame_size, frame_size));
      }
    }
  EXPECT_EQ(failed, 2);
  EXPECT_EQ(log.lines().size(), 1u) << log.all();
}

TEST_P(Medium, AMissingObjectIsToldByName) {
  ASSERT_TRUE(write_medium(id_, "bytes"));
  for (const std::string& key : {medium_key(id_), index_key(id_)}) {
    const std::string kept = pool_->objects[key];
    const uint64_t medium_size = stored_size(medium_key(id_));
    const uint64_t index_size = stored_size(index_key(id_));
    pool_->objects.erase(key);
    Log_Capture log;
    EXPECT_EQ(open_medium(id_, medium_size, index_size), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(log.has(LM_ERROR, "Object \"" + key + "\" is missing.\n")) << log.all();
    pool_->objects[key] = kept;
  }
}

TEST_P(Medium, FilesExchangedBetweenSetsAreFound) {
  const Medium_Id other = medium_id(GetParam(), "set/0000000001.2");
  ASSERT_TRUE(write_medium(id_, some_bytes(1000, 1)));
  ASSERT_TRUE(write_medium(other, some_bytes(1000, 2)));
  std::swap(pool_->objects[medium_key(id_)], pool_->objects[medium_key(other)]);
  Log_Capture log;
  EXPECT_EQ(read_all(open_medium(id_).get()), "(failed)");
  std::swap(pool_->objects[index_key(id_)], pool_->objects[index_key(other)]);  // and now the index with it
  EXPECT_EQ(read_all(open_medium(id_).get()), "(failed)");
  EXPECT_TRUE(log.has_containing(LM_ERROR, "Object \"" + index_key(id_) + "\" is damaged at offset 0: ")) << log.all();
}

class Stored_Medium : public Store_Fixture {};

TEST_F(Stored_Medium, WithoutCompressionItIsThePlainBytes) {
  const std::string bytes = some_bytes(frame_size * 3 / 2);
  ASSERT_TRUE(write_medium(medium_id(COMPR_NONE), bytes));
  EXPECT_TRUE(pool_->objects["set/0000000001.1/channel-000.mtf"] == bytes);
}

TEST_F(Stored_Medium, CompressedItIsASequenceOfZstdFrames) {
  const std::string bytes = some_bytes(frame_size * 7 / 2);
  ASSERT_TRUE(write_medium(medium_id(COMPR_ZSTD), bytes));
  const std::string& stored = pool_->objects["set/0000000001.1/channel-000.mtf.zst"];
  EXPECT_LT(stored.size(), bytes.size() * 2 / 3);
  std::string plain(bytes.size(), '\0');
  EXPECT_EQ(ZSTD_decompress(plain.data(), plain.size(), stored.data(), stored.size()), bytes.size());
  EXPECT_TRUE(plain == bytes);
}

TEST_F(Stored_Medium, WhatDoesNotShrinkGrowsByLessThanAPerMille) {
  std::string bytes(3 * frame_size, '\0');
  std::mt19937_64 random(1);
  for (size_t i = 0; i < bytes.size(); i += 8) {
    const uint64_t word = random();
    std::memcpy(bytes.data() + i, &word, 8);
  }
  ASSERT_TRUE(write_medium(medium_id(COMPR_AUTO), bytes));
  const std::string& stored = pool_->objects["set/0000000001.1/channel-000.mtf.zst"];
  EXPECT_LT(stored.size(), bytes.size() + bytes.size() / 1000);
  EXPECT_TRUE(read_all(open_medium(medium_id(COMPR_AUTO)).get()) == bytes);
}

TEST_F(Stored_Medium, LzopReadsWhatIsCompressedWithItsMethodAtEveryLevel) {
  if (std::system("lzop --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "there is no lzop";
  const std::string bytes = some_bytes(frame_size * 9 / 4) + std::string(1000, 'x');
  const test_support::Temp_Dir dir;
  for (int level = 0; level <= 9; ++level) {
    SCOPED_TRACE(level);
    pool_->objects.clear();
    ASSERT_TRUE(write_medium(medium_id(COMPR_LZOP), bytes, nullptr, level));
    const std::string& stored = pool_->objects["set/0000000001.1/channel-000.mtf.lzo"];
    EXPECT_LT(stored.size(), bytes.size() * 3 / 4);
    dir.write("medium.lzo", stored);
    const std::string command = "lzop -dcq < " + (dir / "medium.lzo") + " > " + (dir / "medium");
    const int status = std::system(command.c_str());
    EXPECT_TRUE(WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 2));  // 2: several members
    EXPECT_TRUE(test_support::read_file(dir / "medium") == bytes);
    EXPECT_TRUE(read_all(open_medium(medium_id(COMPR_LZOP)).get()) == bytes);
  }
}

// The buffers have the exact sizes, so that a sanitizer sees a byte too much.
TEST_F(Stored_Medium, AMemberOfLzopThatIsDamagedGivesNothingWrong) {
  const std::string plain = some_bytes(3000) + std::string(500, 'x');
  std::string member(MTF_BACKUP::frame_capacity, '\0');
  member.resize(MTF_BACKUP::Lzop_Member().compress(plain.data(), plain.size(), 0, member.data()));
  const auto gives_plain = [&](const std::string& stored, size_t size) {
    const auto from = std::make_unique<char[]>(stored.size());
    const auto to = std::make_unique<char[]>(size);
    std::memcpy(from.get(), stored.data(), stored.size());
    if (!MTF_BACKUP::Lzop_Member::decompress(from.get(), stored.size(), to.get(), size)) return false;
    EXPECT_EQ(std::string_view(to.get(), size), plain);
    return true;
  };
  ASSERT_TRUE(gives_plain(member, plain.size()));
  for (size_t n = 0; n < member.size(); ++n) EXPECT_FALSE(gives_plain(member.substr(0, n), plain.size())) << n;
  for (const size_t wrong : {size_t(0), plain.size() - 1, plain.size() + 1}) EXPECT_FALSE(gives_plain(member, wrong));
  EXPECT_FALSE(gives_plain(member + "x", plain.size()));
  EXPECT_FALSE(gives_plain(member + member, plain.size()));
  for (size_t bit = 0; bit < 8 * member.size(); ++bit) {
    std::string damaged = member;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << bit % 8));
    const bool good = gives_plain(damaged, plain.size());
    EXPECT_TRUE(!good || bit / 8 >= 50) << "header, at bit " << bit;
  }
}

TEST_F(Stored_Medium, HigherLevelsTakeLessRoom) {
  const std::string bytes = [] {
    std::string text;
    for (int i = 0; text.size() < frame_size; ++i) text += "line " + std::to_string(i * 7919 % 10007) + " of a log\n";
    return text;
  }();
  for (const Compression_Method method : {COMPR_LZOP, COMPR_ZSTD, COMPR_AUTO}) {
    uint64_t sizes[2];
    const int levels[] = {1, 9};
    for (int i = 0; i < 2; ++i) {
      pool_->objects.clear();
      ASSERT_TRUE(write_medium(medium_id(method), bytes, nullptr, levels[i]));
      sizes[i] = stored_size(medium_key(medium_id(method)));
    }
    EXPECT_LT(sizes[1], sizes[0]) << method;
  }
}

TEST_F(Stored_Medium, MethodsAndLevelsThatDoNotExistAreRefused) {
  const std::pair<Compression_Method, int> wrong[] = {{COMPR_MAX, 0}, {COMPR_LZOP, 10}, {COMPR_ZSTD, 23}};
  for (const auto& [method, level] : wrong) {
    Log_Capture log;
    Medium_Writer writer(client_, medium_id(method), level, workers_);
    EXPECT_FALSE(writer.open());
    EXPECT_EQ(errno, ENOTSUP);
    EXPECT_TRUE(log.has(LM_ERROR, "Compression method " + std::to_string(method) + " with level " +
                                      std::to_string(level) + " is not supported.\n"))
        << log.all();
    EXPECT_TRUE(pool_->objects.empty());
  }
}

TEST_F(Stored_Medium, AReadThatFailsWithoutAReasonIsAFailure) {
  const Medium_Id id = medium_id(COMPR_NONE);
  const std::string bytes = some_bytes(3 * frame_size);
  ASSERT_TRUE(write_medium(id, bytes));
  for (int nth = 0;; ++nth) {
    Log_Capture log;
    Fault_Plan plan(Fault_Plan::READ, nth, 0, true);
    Faulty_Client_IO faulty(client_, plan);
    const auto reader = open_medium(id, &faulty);
    const std::string read = read_all(reader.get());
    if (!plan.struck()) break;
    EXPECT_EQ(read, "(failed)") << nth;
  }
}

TEST_F(Stored_Medium, AFrameThatUnpacksToMoreThanItsPlaceIsRefused) {
  const Medium_Id id = medium_id(COMPR_ZSTD);
  MTF_BACKUP::Stored_Object object;
  MTF_BACKUP::Index_Writer index;
  const std::string zeros(64 << 20, '\0');
  std::string bomb(ZSTD_compressBound(zeros.size()), '\0');
  bomb.resize(ZSTD_compress(bomb.data(), bomb.size(), zeros.data(), zeros.size(), 1));
  pool_->objects[medium_key(id)] = bomb;
  ASSERT_TRUE(
      index.open(client_, id) &&
      index.append({0, static_cast<uint32_t>(bomb.size()), frame_size, XXH3_64bits(bomb.data(), bomb.size())}) &&
      index.finish(object));
  Log_Capture log;
  EXPECT_EQ(read_all(open_medium(id).get()), "(failed)");
  EXPECT_TRUE(log.has_containing(LM_ERROR, "is damaged at offset 0: a frame cannot be decompressed.")) << log.all();
}

}  // namespace
