#include "mtf/core/metadata.h"

#include "mtf/core/buffer.h"
#include "mtf/core/error_code.h"
#include "mtf/core/event_handler.h"

namespace {

json_spirit::Object make_object() {
  json_spirit::Object object;
  object["pool_uuid"] = "p";
  object["host_uuid"] = "h";
  object["uuid"] = "u";
  return object;
}

TEST(Metadata, GivesTheThreeIds) {
  const MTF::Metadata meta(make_object());
  std::string id;
  EXPECT_TRUE(meta.get_pool_uuid(id));
  EXPECT_EQ(id, "p");
  EXPECT_TRUE(meta.get_host_uuid(id));
  EXPECT_EQ(id, "h");
  EXPECT_TRUE(meta.get_uuid(id));
  EXPECT_EQ(id, "u");
}

TEST(Metadata, AMissingIdLeavesTheOutputAlone) {
  std::string id = "before";
  const MTF::Metadata meta;
  EXPECT_FALSE(meta.get_pool_uuid(id));
  EXPECT_FALSE(meta.get_host_uuid(id));
  EXPECT_FALSE(meta.get_uuid(id));
  EXPECT_EQ(id, "before");
}

TEST(Metadata, AnIdThatIsNoStringIsMissing) {
  json_spirit::Object object = make_object();
  object["uuid"] = 5;
  std::string id = "before";
  EXPECT_FALSE(MTF::Metadata(object).get_uuid(id));
  EXPECT_EQ(id, "before");
}

TEST(Metadata, AnEmptyIdIsThere) {
  json_spirit::Object object = make_object();
  object["uuid"] = "";
  std::string id = "before";
  EXPECT_TRUE(MTF::Metadata(object).get_uuid(id));
  EXPECT_EQ(id, "");
}

TEST(Metadata, KeepsUnknownMembers) {
  json_spirit::Object object = make_object();
  object["other"] = 5;
  EXPECT_EQ(MTF::Metadata(object).object().count("other"), 1u);
}

TEST(ErrorCode, HasTheNumbersThatAreStored) {
  EXPECT_EQ(MTF::E_FAILED, -1);
  EXPECT_EQ(MTF::E_OK, 0);
  EXPECT_EQ(MTF::E_SKIP, 1);
  EXPECT_EQ(MTF::E_CORRUPT, 2);
  EXPECT_EQ(MTF::E_NOT_FOUND, 3);
  EXPECT_EQ(MTF::E_UNKNOWN_NT_STREAM, 4);
  EXPECT_EQ(MTF::E_MKDIR, 5);
  EXPECT_EQ(MTF::E_UPLOAD_MTF_FILE_ERROR, 6);
  EXPECT_EQ(MTF::E_DOWNLOAD_CAT_ERROR, 7);
  EXPECT_EQ(MTF::E_GET_SOURCE_DATA, 8);
  EXPECT_EQ(MTF::E_WRITE_TO_STORAGE, 9);
  EXPECT_EQ(MTF::E_ADD_TO_CATALOG, 10);
  EXPECT_EQ(MTF::E_OPEN_MEDIA, 11);
  EXPECT_EQ(MTF::E_GET_POOL_INFO, 12);
  EXPECT_EQ(MTF::E_NO_FILES_BACKUPED, 13);
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, 14);
  EXPECT_EQ(MTF::E_NO_FILES_RESTORED, 15);
}

TEST(Buffer, OwnsOrBorrowsItsMemory) {
  MTF::Buffer own(16);
  EXPECT_NE(own.addr(), nullptr);
  EXPECT_EQ(own.size(), 16u);
  EXPECT_EQ(own.used_size(), 0u);
  char memory[8];
  MTF::Buffer borrowed(memory, sizeof memory);
  EXPECT_EQ(borrowed.addr(), memory);
  borrowed.used_size(5);
  EXPECT_EQ(borrowed.used_size(), 5u);
}

TEST(EventHandler, TheBaseIgnoresProgressAndNeverStops) {
  MTF::Event_Handler handler(MTF::PRM_FILE_COUNT);
  EXPECT_EQ(handler.progress_report_mode(), MTF::PRM_FILE_COUNT);
  EXPECT_EQ(handler.handle_progress(1, 2, 3, 4), 0);
  EXPECT_FALSE(handler.canceling());
  EXPECT_FALSE(handler.pausing());
}

}  // namespace
