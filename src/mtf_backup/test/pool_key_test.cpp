#include <cerrno>

#include "mtf_backup/set/set_key.h"
#include "mtf_backup/test/store_fixture.h"

namespace {

using MTF_BACKUP::list_pool;
using MTF_BACKUP::Pool_Key;
using test_support::Memory_Client_IO;
using test_support::Memory_Pool;

class Pool_Key_Test : public ::testing::Test {
 protected:
  std::string listed(const std::string& host = "", const std::string& resource = "") {
    std::vector<Pool_Key> keys;
    EXPECT_TRUE(list_pool(client_, host, resource, keys));
    std::string text;
    for (const Pool_Key& key : keys) text += key.host + " " + key.resource + " " + key.set.dir() + "\n";
    return text;
  }

  const std::shared_ptr<Memory_Pool> pool_ = std::make_shared<Memory_Pool>();
  Memory_Client_IO client_{pool_};
};

TEST_F(Pool_Key_Test, Sets_are_those_with_a_commit_record) {
  for (const char* key : {"h/r/a/0000000001.1/commit", "h/r/a/0000000001.1/catalog", "h/r/a/0000000002.1/catalog",
                          "h/r/a/1.1/commit", "h/a/0000000001.1/commit", "h/r/a/0000000001.1/x/commit", "readme"})
    pool_->objects[key] = "";
  EXPECT_EQ(listed(), "h r a/0000000001.1\n");
}

TEST_F(Pool_Key_Test, They_come_in_order_with_incarnations_as_numbers) {
  for (const char* key : {"h/r2/a/0000000001.1/commit", "h/r/b/0000000001.1/commit", "h/r/a/0000000001.10/commit",
                          "h/r/a/0000000001.9/commit", "g/r/a/4294967295.1/commit"})
    pool_->objects[key] = "";
  EXPECT_EQ(listed(),
            "g r a/4294967295.1\nh r a/0000000001.9\nh r a/0000000001.10\nh r b/0000000001.1\nh r2 a/0000000001.1\n");
}

TEST_F(Pool_Key_Test, Host_and_resource_narrow_the_list_by_whole_names) {
  for (const char* key : {"h/r/a/0000000001.1/commit", "h/r2/a/0000000001.1/commit", "h2/r/a/0000000001.1/commit"})
    pool_->objects[key] = "";
  EXPECT_EQ(listed("h"), "h r a/0000000001.1\nh r2 a/0000000001.1\n");
  EXPECT_EQ(listed("", "r"), "h r a/0000000001.1\nh2 r a/0000000001.1\n");
  EXPECT_EQ(listed("h", "r"), "h r a/0000000001.1\n");
  EXPECT_EQ(listed("x"), "");
}

TEST_F(Pool_Key_Test, A_resource_may_have_several_components) {
  pool_->objects["h/ns/claim/a/0000000001.1/commit"] = "";
  EXPECT_EQ(listed(), "h ns/claim a/0000000001.1\n");
  EXPECT_EQ(listed("h", "ns/claim"), "h ns/claim a/0000000001.1\n");
}

TEST_F(Pool_Key_Test, A_failing_storage_fails_the_listing_and_leaves_the_output_alone) {
  test_support::Log_Capture log;
  test_support::Fault_Plan plan(test_support::Fault_Plan::LIST, 0, EIO);
  test_support::Faulty_Client_IO faulty(client_, plan);
  std::vector<Pool_Key> keys(1);
  EXPECT_FALSE(list_pool(faulty, "", "", keys));
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(keys.size(), 1u);
}

}  // namespace
