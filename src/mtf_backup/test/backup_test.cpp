#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "kolt/dir_size.h"
#include "mtf_backup/set/catalog_reader.h"
#include "mtf_backup/test/mover_fixture.h"
#include "support/tree_maker.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

class Backup : public Mover_Fixture {
 protected:
  /// Runs a backup that has to be refused before the pool is touched.
  std::string refusal(const std::function<void(MTF_Backup&)>& change) {
    Log_Capture log;
    MTF::Metadata metadata;
    MTF_Backup backup(MTF::Event_Handler_var(nullptr), metadata, ACE_Log_Msg_Callback_var());
    backup.callback_factory(MTF::IBackup_Callback_Factory_var(new Posix_Backup_Factory));
    backup.channel_factory(std::make_shared<Memory_Channel_Factory>(pool_));
    backup.add_source(source_);
    change(backup);
    EXPECT_FALSE(backup.backup("volume"));
    EXPECT_EQ(MTF::E_FAILED, backup.err_code());
    EXPECT_TRUE(pool_->objects.empty());
    return joined(log.texts(LM_ERROR));
  }

  std::vector<MTF_BACKUP::Catalog_Entry> catalog(const MTF_BACKUP::Commit_Record& record) {
    const std::string dir = MTF_BACKUP::Set_Id{record.name, record.seq, record.incarnation}.dir();
    test_support::Memory_Client_IO client(pool_);
    MTF_BACKUP::Catalog_Reader reader(client, dir, record.set_uuid, record.find("catalog")->size);
    EXPECT_TRUE(reader.open());
    std::vector<MTF_BACKUP::Catalog_Entry> entries;
    MTF_BACKUP::Catalog_Entry entry;
    while (reader.next(entry) == 1) entries.push_back(entry);
    return entries;
  }
};

TEST_F(Backup, SetIsInThePoolWithAllItsObjects) {
  write("a", "one");
  write("d/b", "two");
  ASSERT_TRUE(back_up({.channels = 2}));
  EXPECT_EQ(MTF::E_OK, code_);
  const auto records = sets();
  ASSERT_EQ(1u, records.size());
  EXPECT_EQ("volume", records[0].name);
  EXPECT_EQ("set-uuid", records[0].set_uuid);
  EXPECT_EQ(std::vector<std::string>{source_}, records[0].sources);
  EXPECT_EQ(2u, records[0].channels);
  ACE_UINT64 bytes = 0;
  for (const auto& object : records[0].objects) {
    const auto found = pool_->objects.find("volume/0000000001.1/" + object.name);
    ASSERT_NE(pool_->objects.end(), found) << object.name;
    EXPECT_EQ(found->second.size(), object.size);
    bytes += object.size;
  }
  EXPECT_EQ(bytes, storage_size_);
}

TEST_F(Backup, CatalogListsEntriesInTheOrderOfTheWalk) {
  for (const char* name : {"b", "a.x/f", "a/z", "a/b/c", "a0", "C"}) write(name, "x");
  ASSERT_TRUE(back_up({.channels = 3}));
  std::vector<std::string> paths;
  for (const auto& entry : catalog(sets().at(0))) paths.push_back(entry.path);
  EXPECT_EQ((std::vector<std::string>{"", "C", "a0", "b", "a", "a/z", "a/b", "a/b/c", "a.x", "a.x/f"}), paths);
}

TEST_F(Backup, NumberOfTheNewSetIsTheNextOne) {
  write("a", "one");
  ASSERT_TRUE(back_up({.seq = 41}));
  EXPECT_EQ(42u, sets().at(0).seq);
}

TEST_F(Backup, NumberBehindTheHighestIsZero) {
  write("a", "one");
  ASSERT_TRUE(back_up({.seq = 0xffffffffu}));
  EXPECT_EQ(0u, sets().at(0).seq);
}

TEST_F(Backup, SecondSetOfOneNumberIsItsNextIncarnation) {
  write("a", "one");
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(back_up());
  ASSERT_EQ(2u, sets().size());
  EXPECT_EQ(1u, sets()[0].incarnation);
  EXPECT_EQ(2u, sets()[1].incarnation);
}

TEST_F(Backup, LeftoversOfAnEarlierCrashAreSwept) {
  write("a", "one");
  pool_->objects["volume/0000000007.1/channel-000.mtf"] = "half a medium";
  ASSERT_TRUE(back_up());
  EXPECT_FALSE(pool_->objects.contains("volume/0000000007.1/channel-000.mtf"));
}

TEST_F(Backup, SizesAreThoseThatDirSizeTells) {
  write("a", noise(5000));
  write("d/b", noise(70000));
  ASSERT_EQ(0, symlink("some/where", (source_ + "/link").c_str()));
  ASSERT_EQ(0, link((source_ + "/a").c_str(), (source_ + "/d/second").c_str()));
  ASSERT_TRUE(back_up());
  EXPECT_EQ(static_cast<ACE_UINT64>(dir_size(source_.c_str())), size_);
  EXPECT_EQ(size_, set_size_);
  EXPECT_EQ(size_, sets().at(0).summary.total_size);
}

TEST_F(Backup, LastReportIsTheWholeSize) {
  write("a", noise(3000000));
  ASSERT_EQ(0, symlink("some/where", (source_ + "/link").c_str()));
  ASSERT_TRUE(back_up());
  ASSERT_FALSE(handler_->reports().empty());
  const Report last = handler_->reports().back();
  EXPECT_EQ(100, last.percent);
  EXPECT_EQ(size_, last.total);
  EXPECT_EQ(size_, last.processed);
  EXPECT_GT(last.speed, 0u);
}

TEST_F(Backup, ReportsComeFromTheCallersThread) {
  write("a", "one");
  ASSERT_TRUE(back_up({.channels = 4}));
  ASSERT_FALSE(handler_->threads().empty());
  for (const std::thread::id id : handler_->threads()) EXPECT_EQ(std::this_thread::get_id(), id);
}

TEST_F(Backup, EmptySourceIsASetOfNothingAndACode) {
  EXPECT_FALSE(back_up());
  EXPECT_EQ(MTF::E_NO_FILES_BACKUPED, code_);
  EXPECT_EQ(0u, size_);
  EXPECT_EQ(0u, set_size_);
  ASSERT_EQ(1u, sets().size());
  EXPECT_EQ(0u, sets()[0].summary.file_count);
}

TEST_F(Backup, EmptySourceIsNoErrorInTheLog) {
  Log_Capture log;
  EXPECT_FALSE(back_up());
  EXPECT_TRUE(log.texts(LM_ERROR).empty()) << log.all();
}

TEST_F(Backup, SourceWithEmptyDirectoriesIsNotEmpty) {
  std::filesystem::create_directory(source_ + "/d");
  EXPECT_TRUE(back_up());
}

TEST_F(Backup, MissingSourceIsToldAndLeavesNoSet) {
  Log_Capture log;
  EXPECT_FALSE(back_up({.sources = {dir_ / "nowhere"}}));
  EXPECT_EQ(MTF::E_GET_SOURCE_DATA, code_);
  EXPECT_TRUE(log.has_containing(LM_ERROR, "Failed to open directory " + (dir_ / "nowhere"))) << log.all();
  EXPECT_TRUE(pool_->objects.empty());
}

TEST_F(Backup, FileAsASourceIsRefused) {
  write("a", "one");
  Log_Capture log;
  EXPECT_FALSE(back_up({.sources = {source_ + "/a"}}));
  EXPECT_EQ(MTF::E_GET_SOURCE_DATA, code_);
}

TEST_F(Backup, ALevelThatTheMethodDoesNotHaveIsRefused) {
  const std::pair<unsigned, int> wrong[] = {{COMPR_AUTO, -1}, {COMPR_AUTO, 23}, {COMPR_ZSTD, -1},
                                            {COMPR_ZSTD, 23}, {COMPR_LZOP, -1}, {COMPR_LZOP, 10}};
  for (const auto& [method, level] : wrong)
    EXPECT_EQ("Failed to start the backup: the compression method has no such level.\n\n",
              refusal([method = method, level = level](MTF_Backup& backup) {
                backup.compression(static_cast<MTF_COMPRESSION_TYPE>(method));
                backup.compression_level(level);
              }));
}

TEST_F(Backup, UnknownCompressionIsRefused) {
  EXPECT_EQ("Failed to start the backup: unknown compression method.\n\n",
            refusal([](MTF_Backup& backup) { backup.compression(COMPR_MAX); }));
}

TEST_F(Backup, EncryptionThatTheChannelsDoNotHaveIsRefused) {
  EXPECT_EQ(
      "Failed to start the backup: encryption is asked for, but the storage channels have none.\n\n",
      refusal([](MTF_Backup& backup) { backup.extra_client_io_opts().encryption_algorithm = ENCRYPT_AES_256_GCM; }));
}

TEST_F(Backup, MissingChannelFactoryIsRefused) {
  EXPECT_EQ("Failed to start the backup: no channel factory.\n\n",
            refusal([](MTF_Backup& backup) { backup.channel_factory(nullptr); }));
}

TEST_F(Backup, EmptyCallbackFactoryIsRefused) {
  EXPECT_EQ("Failed to start the backup: no callback factory.\n\n",
            refusal([](MTF_Backup& backup) { backup.callback_factory(MTF::IBackup_Callback_Factory_var(nullptr)); }));
}

TEST_F(Backup, TooManyChannelsAreCutWithAWarning) {
  write("a", "one");
  Log_Capture log;
  ASSERT_TRUE(back_up({.channels = 65}));
  EXPECT_TRUE(log.has(LM_WARNING, "65 channels are too many, 64 are used.\n")) << log.all();
  EXPECT_EQ(64u, sets().at(0).channels);
}

TEST_F(Backup, NoChannelsMeanOne) {
  write("a", "one");
  ASSERT_TRUE(back_up({.channels = 0}));
  EXPECT_EQ(1u, sets().at(0).channels);
}

TEST_F(Backup, IdsComeFromTheMetadataFirst) {
  json_spirit::Object object;
  object["uuid"] = "from-meta";
  object["host_uuid"] = "host-from-meta";
  MTF::Metadata metadata(object);
  MTF_Backup backup(MTF::Event_Handler_var(nullptr), metadata, ACE_Log_Msg_Callback_var());
  backup.host_uuid("host-set");
  EXPECT_EQ("from-meta", backup.settings().uuid);
  EXPECT_EQ("host-set", backup.settings().host_uuid);
}

TEST_F(Backup, BeforeARunThereAreNoSizes) {
  MTF::Metadata metadata;
  MTF_Backup backup(MTF::Event_Handler_var(nullptr), metadata, ACE_Log_Msg_Callback_var());
  EXPECT_EQ(0u, backup.size() + backup.set_size() + backup.set_storage_size());
  EXPECT_EQ(MTF::E_OK, backup.err_code());
}

TEST_F(Backup, RunWithoutAnEventHandlerWorks) {
  write("a", "one");
  MTF::Metadata metadata;
  MTF_Backup backup(MTF::Event_Handler_var(nullptr), metadata, ACE_Log_Msg_Callback_var());
  backup.callback_factory(MTF::IBackup_Callback_Factory_var(new Posix_Backup_Factory));
  backup.channel_factory(std::make_shared<Memory_Channel_Factory>(pool_));
  backup.add_source(source_);
  EXPECT_TRUE(backup.backup("volume"));
}

TEST_F(Backup, FifosAndSocketsAreRecordedAndNeverOpened) {
  ASSERT_EQ(0, mkfifo((source_ + "/fifo").c_str(), 0600));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof address.sun_path, "%s/socket", source_.c_str());
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address));
  close(fd);
  ASSERT_TRUE(back_up({.hook = [](const char* operation, const std::string&) {
    EXPECT_STRNE("open", operation);
    return false;
  }}));
  EXPECT_EQ(2u, sets().at(0).summary.file_count);
}

}  // namespace
