#include "kolt/pool_info.h"
#include "mtf_backup/test/mover_fixture.h"
#include "support/tree_maker.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

/// Sets in a pool on the disk, as a job makes them: from the description of the pool to the restored tree.
class Encrypted_Set : public Mover_Fixture, public ::testing::WithParamInterface<Encryption_Algorithm> {
 protected:
  Encrypted_Set() {
    write("secret", "a canary in a coal mine, written often enough: a canary in a coal mine");
    write("canary-name", "");
    test_support::make_tree(source_, {.files = 40, .bytes = 500'000});
  }

  Pool_Info pool(char key = 'k') const {
    static const size_t lengths[] = {0, 16, 24, 32, 32};
    Pool_Info info;
    info.url = "file://" + (dir_ / "pool");
    info.cipher = GetParam();
    info.key = std::string(lengths[GetParam()], key);
    info.iv = "0123456789abcdef";
    return info;
  }

  bool back_up_to(const Pool_Info& info) {
    MTF::Metadata metadata;
    MTF_Backup backup(MTF::Event_Handler_var(nullptr), metadata, ACE_Log_Msg_Callback_var());
    backup.uuid("set-uuid");
    backup.channel_num(3);
    backup.callback_factory(MTF::IBackup_Callback_Factory_var(new Posix_Backup_Factory));
    backup.channel_factory(MTF_BACKUP::make_channel_factory(info, "host/minor", Client_IO_Base::Options()));
    backup.add_source(source_);
    return backup.backup("volume");
  }
  bool restore_from(const Pool_Info& info) {
    MTF_Restore restore(MTF::Event_Handler_var(nullptr), ACE_Log_Msg_Callback_var());
    restore.seq(1);
    restore.concurrent(3);
    restore.path_converter(
        MTF_FS::create_transform_path_converter("/", {{source_, target_}}, false, MTF::IPath_Converter_var(nullptr)));
    restore.callback_factory(MTF::IRestore_Callback_Factory_var(new Posix_Restore_Factory));
    restore.channel_factory(MTF_BACKUP::make_channel_factory(info, "host/minor", Client_IO_Base::Options()));
    return restore.restore("volume");
  }
  void expect_refused(const Pool_Info& info, const std::string& line) {
    Log_Capture log;
    EXPECT_FALSE(restore_from(info));
    EXPECT_TRUE(log.has_containing(LM_ERROR, line)) << log.all();
    EXPECT_TRUE(std::filesystem::is_empty(target_));
  }
  void expect_no_canary() const {
    for (const auto& file : std::filesystem::recursive_directory_iterator(dir_ / "pool"))
      if (file.is_regular_file()) {
        EXPECT_EQ(std::string::npos, test_support::read_file(file.path().string()).find("canary")) << file.path();
      }
  }
};

INSTANTIATE_TEST_SUITE_P(Ciphers, Encrypted_Set,
                         ::testing::Values(ENCRYPT_AES_128_CBC, ENCRYPT_AES_192_CBC, ENCRYPT_AES_256_CBC,
                                           ENCRYPT_AES_256_GCM));

TEST_P(Encrypted_Set, ComesBackAsItWas) {
  ASSERT_TRUE(back_up_to(pool()));
  ASSERT_TRUE(restore_from(pool()));
  EXPECT_EQ("", differences());
  expect_no_canary();
}

TEST_P(Encrypted_Set, IsReadAfterTheDirectoryOfItsResourceWasMoved) {
  ASSERT_TRUE(back_up_to(pool()));
  Pool_Info moved = pool();
  moved.url = "file://" + (dir_ / "elsewhere");
  std::filesystem::create_directories(dir_ / "elsewhere/host");
  std::filesystem::rename(dir_ / "pool/host/minor", dir_ / "elsewhere/host/minor");
  ASSERT_TRUE(restore_from(moved));
  EXPECT_EQ("", differences());
}

TEST_P(Encrypted_Set, IsNotReadWithAnotherKey) {
  ASSERT_TRUE(back_up_to(pool()));
  expect_refused(pool('K'),
                 "Failed to decrypt object \"volume/0000000001.1/commit\" at offset 0: wrong key or damaged "
                 "header.\n");
}

TEST_P(Encrypted_Set, IsNotReadWithoutACipherAndTheLogTellsWhy) {
  ASSERT_TRUE(back_up_to(pool()));
  Pool_Info plain = pool();
  plain.cipher = ENCRYPT_NONE;
  expect_refused(plain,
                 "Object \"volume/0000000001.1/commit\" is damaged at offset 0: it is encrypted, but its pool has "
                 "no cipher.\n");
}

TEST_P(Encrypted_Set, OneThatIsNotEncryptedIsNotTakenForOne) {
  Pool_Info plain = pool();
  plain.cipher = ENCRYPT_NONE;
  Log_Capture log;
  ASSERT_TRUE(back_up_to(plain));
  EXPECT_TRUE(log.has(LM_WARNING, "The storage pool has a key but no cipher: objects are not encrypted.\n"));
  expect_refused(pool(),
                 "Failed to decrypt object \"volume/0000000001.1/commit\" at offset 0: it is not encrypted, but "
                 "its pool is.\n");
}

}  // namespace
