#include <future>

#include "mtf_backup/test/chain_fixture.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

/// Does something once, before a catalog becomes visible: the media are there by then.
class Before_Catalog_Client_IO : public test_support::Memory_Client_IO {
 public:
  Before_Catalog_Client_IO(std::shared_ptr<test_support::Memory_Pool> pool, std::function<void()>& action)
      : Memory_Client_IO(std::move(pool)), action_(action) {}

  std::unique_ptr<Writer> create(const std::string& key) override {
    std::unique_ptr<Writer> next = Memory_Client_IO::create(key);
    if (!next || !key.ends_with("/catalog")) return next;
    return std::make_unique<Hooked_Writer>(std::move(next), action_);
  }

 private:
  struct Hooked_Writer : Writer {
    Hooked_Writer(std::unique_ptr<Writer> next, std::function<void()>& action)
        : next_(std::move(next)), action_(action) {}
    bool write(const void* data, size_t n) override { return next_->write(data, n); }
    bool commit() override {
      if (const auto action = std::exchange(action_, nullptr)) action();
      return next_->commit();
    }
    uint64_t size() const override { return next_->size(); }

    const std::unique_ptr<Writer> next_;
    std::function<void()>& action_;
  };

  std::function<void()>& action_;
};

/// Two backups of one resource at once.
class Rival_Runs : public Chain_Fixture {
 protected:
  Rival_Runs() {
    write("file", noise(3000));
    wrap = [this](std::unique_ptr<Client_IO_Base>) {
      return std::make_shared<Before_Catalog_Client_IO>(pool_, before_catalog_);
    };
  }

  /// The other one, which keeps to itself what it comes to.
  bool back_up_beside(const Hook& hook = Hook()) const {
    MTF::Metadata metadata;
    MTF_Backup backup(MTF::Event_Handler_var(nullptr), metadata, ACE_Log_Msg_Callback_var());
    backup.uuid("other-uuid");
    backup.channel_num(1);
    backup.callback_factory(MTF::IBackup_Callback_Factory_var(new Posix_Backup_Factory(hook)));
    backup.channel_factory(std::make_shared<Memory_Channel_Factory>(pool_));
    backup.add_source(source_);
    return backup.backup("volume");
  }

  std::function<void()> before_catalog_;
};

TEST_F(Rival_Runs, OfTwoThatWriteTheSameIncarnationTheFirstStands) {
  std::promise<void> begun, published;
  const Hook wait = once("open", "file", [&] {
    begun.set_value();
    published.get_future().wait();
  });
  Log_Capture log;
  auto other = std::async(std::launch::async, [&] { return back_up_beside(wait); });
  begun.get_future().wait();
  bool other_stands = true;
  before_catalog_ = [&] {
    published.set_value();
    other_stands = other.get();
  };
  EXPECT_TRUE(back_up()) << log.all();
  EXPECT_FALSE(other_stands);
  EXPECT_EQ(sets().size(), 1u);
  EXPECT_EQ(restored_differences(1, source_), "");
}

TEST_F(Rival_Runs, WhoIsSweptFailsAndTheSweeperStands) {
  Log_Capture log;
  bool other_stands = false;
  before_catalog_ = [&] { other_stands = back_up_beside(); };
  EXPECT_FALSE(back_up());
  EXPECT_TRUE(other_stands) << log.all();
  EXPECT_EQ(sets().size(), 1u);
  EXPECT_EQ(restored_differences(1, source_), "");
  for (const auto& [key, bytes] : pool_->objects) EXPECT_TRUE(key.starts_with("volume/0000000001.2/")) << key;
}

TEST_F(Rival_Runs, ASetWhoseRemovalHasBegunIsNoBase) {
  ASSERT_TRUE(step());
  pool_->objects[set_dir(1) + "/condemned-0123456789abcdef"] = "";
  Log_Capture log;
  ASSERT_TRUE(aged_step());
  EXPECT_EQ(last_record().base, "");
  EXPECT_TRUE(log.has_containing(LM_WARNING,
                                 "Set volume/0000000002.1 is written in full and builds on no other: of set "
                                 "volume/0000000001.1 the removal of set volume/0000000001.1 has begun.\n"))
      << log.all();
  EXPECT_EQ(restored_differences(1, source_), "") << "it can still be read";
}

TEST_F(Rival_Runs, AnIncrementalWhoseBaseIsRemovedMeanwhileFails) {
  ASSERT_TRUE(step());
  Log_Capture log;
  before_catalog_ = [&] {
    EXPECT_TRUE(MTF_BACKUP::Set_Store(make_channels(nullptr)->storage()).remove({"volume", 1, 1}));
  };
  EXPECT_FALSE(aged_step());
  EXPECT_EQ(code_, MTF::E_WRITE_TO_STORAGE);
  EXPECT_TRUE(pool_->objects.empty());
}

}  // namespace
