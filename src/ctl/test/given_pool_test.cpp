#include "ctl/given_pool.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "ctl/failure.h"
#include "ctl/options.h"
#include "support/temp_dir.h"

namespace {

using namespace ctl;

TEST(Given_Pool, A_plain_directory_is_a_pool) {
  EXPECT_EQ(pool_url("/pool/"), "file:///pool/");
  EXPECT_EQ(pool_url("/a/../pool"), "file:///pool");
  EXPECT_EQ(pool_url("s3://bucket/x"), "s3://bucket/x");
  EXPECT_EQ(pool_url(""), "");
  EXPECT_EQ(pool_url("pool"), "file://" + (std::filesystem::current_path() / "pool").string());
}

TEST(Given_Pool, The_file_goes_before_the_url) {
  test_support::Temp_Dir dir;
  Options options;
  EXPECT_EQ(given_pool(options).url, "");
  options.pool = "/pool";
  EXPECT_EQ(given_pool(options).url, "file:///pool");
  options.pool_file = dir.write("pool.json", R"({"url": "s3://bucket", "default_s3": {"region": "r"}})");
  EXPECT_EQ(given_pool(options).url, "s3://bucket");
  EXPECT_EQ(given_pool(options).default_s3.at("region"), "r");
}

TEST(Given_Pool, A_file_that_describes_no_pool_is_refused) {
  test_support::Temp_Dir dir;
  Options options;
  for (const char* text : {"", "[]", "{}", "{\"url\": 1}", "{\"url\": \"/p\""}) {
    options.pool_file = dir.write("pool.json", text);
    EXPECT_THROW(given_pool(options), Failure) << text;
  }
}

TEST(Given_Pool, A_file_that_cannot_be_read_is_refused_with_the_reason) {
  test_support::Temp_Dir dir;
  Options options;
  options.pool_file = dir / "missing";
  try {
    given_pool(options);
    FAIL() << "it was taken";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.what(), "The file '" + options.pool_file + "' cannot be read: No such file or directory.");
  }
}

TEST(Given_Pool, What_a_url_carries_of_a_user_is_not_shown) {
  EXPECT_EQ(shown_url("s3://key:secret@host/x"), "s3://host/x");
  EXPECT_EQ(shown_url("s3://host/x"), "s3://host/x");
  EXPECT_EQ(shown_url("/a@b"), "/a@b");
}

}  // namespace
