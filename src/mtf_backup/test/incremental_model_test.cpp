// A tree changes at random; each state becomes an incremental set. Any of them has to bring its state back, whatever
// was removed meanwhile.
//
// TESSARIN_MODEL_ROUNDS says how many states (30), TESSARIN_MODEL_SEED which changes; the seed is printed.
#include <cstdlib>
#include <set>

#include "mtf_backup/test/chain_fixture.h"
#include "mtf_backup/test/random_tree.h"

namespace {

namespace fs = std::filesystem;
using MTF_BACKUP::Commit_Record;
using MTF_BACKUP::Set_Id;
using MTF_BACKUP::Set_Store;

uint64_t from_environment(const char* name, uint64_t otherwise) {
  const char* const text = std::getenv(name);
  return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

class Incremental_Model : public mover_test::Chain_Fixture {
 protected:
  typedef std::map<unsigned, std::string> Saved;  // copies of the source by the number of their set

  /// Only the newest set is built on, so it alone needs to be younger than the files.
  void age_newest() {
    Commit_Record record;
    ASSERT_TRUE(store_.read(set_dir(last_seq_), record));
    record.begin_time = std::time(nullptr) + 100;
    pool_->objects[set_dir(last_seq_) + "/commit"] = record.to_text();
  }

  /// What the record says is what the catalog holds.
  void check_record() {
    Commit_Record record;
    ASSERT_TRUE(store_.read(set_dir(last_seq_), record));
    std::set<uint32_t> referred;
    uint64_t held = 0;
    uint64_t total = 0;
    test_support::Memory_Client_IO client(pool_);
    MTF_BACKUP::Catalog_Reader reader(client, dir_of(record), record.set_uuid, record.find("catalog")->size);
    ASSERT_TRUE(reader.open());
    MTF_BACKUP::Catalog_Entry entry;
    while (reader.next(entry) == 1) {
      if (entry.set != 0) referred.insert(entry.set);
      const uint64_t size = entry.is_directory() ? 0 : entry.stat.size;
      total += size;
      if (entry.set == 0) held += size;
    }
    EXPECT_EQ(referred.size(), record.chain.size());
    EXPECT_TRUE(referred.empty() || *referred.rbegin() == record.chain.size());
    EXPECT_EQ(record.summary.total_size, total);
    EXPECT_EQ(record.summary.inc_size, held);
  }

  /// Removes a set, unless another needs it, which it then has to be refused for.
  void try_to_remove(unsigned seq, Saved& saved) {
    const Set_Id id{"volume", seq, 1};
    bool needed = false;
    for (const Commit_Record& record : sets())
      for (const MTF_BACKUP::Chain_Link& link : record.chain) needed = needed || link.dir == id.dir();
    test_support::Log_Capture log;
    ASSERT_EQ(store_.remove(id), !needed) << log.all();
    if (needed) return;
    fs::remove_all(saved[seq]);
    saved.erase(seq);
  }

  Set_Store store_{std::make_shared<test_support::Memory_Client_IO>(pool_)};
};

TEST_F(Incremental_Model, EveryStateComesBack) {
  const uint64_t rounds = from_environment("TESSARIN_MODEL_ROUNDS", 30);
  const uint64_t seed = from_environment("TESSARIN_MODEL_SEED", std::random_device()());
  std::printf("%llu rounds, TESSARIN_MODEL_SEED=%llu\n", static_cast<unsigned long long>(rounds),
              static_cast<unsigned long long>(seed));
  mover_test::Random_Tree tree(source_, seed);
  Saved saved;
  for (uint64_t round = 0; round < rounds; ++round) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round));
    // Now and then the set is so young that all which changed with it is read again.
    if (last_seq_ > 0 && tree.below(4) != 0) age_newest();
    ASSERT_FALSE(HasFailure());
    for (uint64_t i = tree.below(12); i > 0; --i) tree.change();
    static constexpr unsigned methods[] = {COMPR_NONE, COMPR_AUTO, COMPR_ZSTD};
    const bool done = step({.compression = methods[tree.below(3)], .channels = 1 + tree.below(3)});
    ASSERT_TRUE(done || code_ == MTF::E_NO_FILES_BACKUPED) << code_;
    saved[last_seq_] = save("saved" + std::to_string(last_seq_));
    check_record();

    if (saved.size() > 10) try_to_remove(std::next(saved.begin(), tree.below(saved.size() - 1))->first, saved);
    ASSERT_FALSE(HasFailure());
    const auto chosen = std::next(saved.begin(), tree.below(saved.size()));
    ASSERT_EQ(restored_differences(chosen->first, chosen->second), "") << "set " << chosen->first;
  }
}

}  // namespace
