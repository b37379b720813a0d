#include "kolt/pool_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json_spirit/json_spirit_value.h"
#include "support/log_capture.h"

namespace {

using json_spirit::Array;
using json_spirit::Object;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

Object full_description() {
  return {{"uuid", "u"},
          {"name", "n"},
          {"host_uuid", "h"},
          {"url", "file:///pool"},
          {"device_exists", false},
          {"multidevice", true},
          {"server_side_encryption", true},
          {"cipher", 3},
          {"key", "AAEC/w=="},
          {"iv", "AwA="},
          {"preferred_source_address", "10.0.0.1"},
          {"tenant_access_key", "t"},
          {"ext_attrs", Object{{"a", "1"}, {"b", 2}}},
          {"node_addrs", Array{Object{{"node_id", 7}, {"address", "10.0.0.7"}}}},
          {"dedup_backend_type", "d"},
          {"default_s3", Object{{"region", "r"}, {"n", 1}}},
          {"s3_enabled", true}};
}

TEST(Pool_Info, EmptyDescriptionGivesTheDefaults) {
  Pool_Info pool;
  pool << Object{};
  for (const std::string* text : {&pool.uuid, &pool.name, &pool.host_uuid, &pool.url, &pool.key, &pool.iv,
                                  &pool.preferred_source_address, &pool.tenant_access_key, &pool.dedup_backend_type})
    EXPECT_EQ(*text, "");
  EXPECT_TRUE(pool.device_exists);
  EXPECT_FALSE(pool.multidevice);
  EXPECT_FALSE(pool.server_side_encryption);
  EXPECT_EQ(pool.cipher, ENCRYPT_NONE);
  EXPECT_THAT(pool.ext_attrs, IsEmpty());
  EXPECT_THAT(pool.node_addrs, IsEmpty());
  EXPECT_THAT(pool.default_s3, IsEmpty());
  EXPECT_FALSE(pool.s3_enabled);
}

TEST(Pool_Info, ReadsEveryMember) {
  Pool_Info pool;
  pool << full_description();
  EXPECT_EQ(pool.uuid, "u");
  EXPECT_EQ(pool.name, "n");
  EXPECT_EQ(pool.host_uuid, "h");
  EXPECT_EQ(pool.url, "file:///pool");
  EXPECT_FALSE(pool.device_exists);
  EXPECT_TRUE(pool.multidevice);
  EXPECT_TRUE(pool.server_side_encryption);
  EXPECT_EQ(pool.cipher, ENCRYPT_AES_256_CBC);
  EXPECT_EQ(pool.key, std::string("\0\1\2\xff", 4));
  EXPECT_EQ(pool.iv, std::string("\3\0", 2));
  EXPECT_EQ(pool.preferred_source_address, "10.0.0.1");
  EXPECT_EQ(pool.tenant_access_key, "t");
  EXPECT_THAT(pool.ext_attrs, ElementsAre(Pair("a", "1")));
  EXPECT_THAT(pool.node_addrs, ElementsAre(Pair(7u, "10.0.0.7")));
  EXPECT_EQ(pool.dedup_backend_type, "d");
  EXPECT_THAT(pool.default_s3, ElementsAre(Pair("region", "r")));
  EXPECT_TRUE(pool.s3_enabled);
}

TEST(Pool_Info, KeysAreWiped) {
  alignas(Pool_Info) char room[sizeof(Pool_Info)];
  auto* pool = new (room) Pool_Info;
  pool->key = "canary-1";  // short ones lie in the object itself
  pool->tenant_access_key = "canary-2";
  pool->~Pool_Info();
  EXPECT_EQ(std::string_view(room, sizeof room).find("canary"), std::string_view::npos);
}

TEST(Pool_Info, SecondReadKeepsTextsAndClearsTheRest) {
  Pool_Info pool;
  pool << full_description();
  pool << Object{{"url", "file:///other"}};
  EXPECT_EQ(pool.url, "file:///other");
  EXPECT_EQ(pool.uuid, "u");
  EXPECT_EQ(pool.tenant_access_key, "t");
  EXPECT_FALSE(pool.device_exists);
  EXPECT_TRUE(pool.multidevice);
  EXPECT_TRUE(pool.s3_enabled);
  EXPECT_EQ(pool.key, "");
  EXPECT_EQ(pool.iv, "");
  EXPECT_EQ(pool.cipher, ENCRYPT_NONE);
  EXPECT_THAT(pool.ext_attrs, IsEmpty());
  EXPECT_THAT(pool.node_addrs, IsEmpty());
  EXPECT_THAT(pool.default_s3, IsEmpty());
}

TEST(Pool_Info, AttributesThatAreNoStringsAreDropped) {
  Pool_Info pool;
  pool << Object{{"ext_attrs", Object{{"text", "x"}, {"number", 1}}}};
  EXPECT_THAT(pool.ext_attrs, ElementsAre(Pair("text", "x")));
}

TEST(Pool_Info, AddressesWithoutANodeOrATextAreDropped) {
  Pool_Info pool;
  pool << Object{{"multidevice", true},
                 {"node_addrs", Array{Object{{"node_id", 0}, {"address", "zero"}}, Object{{"address", "none"}},
                                      Object{{"node_id", 5}}, Object{{"node_id", 6}, {"address", 6}}, "text",
                                      Object{{"node_id", 8}, {"address", "eight"}}}}};
  EXPECT_THAT(pool.node_addrs, ElementsAre(Pair(8u, "eight")));
}

TEST(Pool_Info, AddressesAreIgnoredWithoutMultidevice) {
  Object description = full_description();
  description["multidevice"] = false;
  Pool_Info pool;
  pool << description;
  EXPECT_THAT(pool.node_addrs, IsEmpty());
}

TEST(Pool_Info, MembersOfAnotherKindCountAsAbsent) {
  Pool_Info pool;
  test_support::Log_Capture log;
  pool << Object{{"uuid", 1}, {"device_exists", "no"}, {"cipher", "aes"}, {"key", 1}, {"ext_attrs", Array{}}};
  EXPECT_EQ(pool.uuid, "");
  EXPECT_TRUE(pool.device_exists);
  EXPECT_EQ(pool.cipher, ENCRYPT_NONE);
  EXPECT_EQ(log.all(), "");
}

TEST(Pool_Info, UnknownCipherIsPassedOn) {
  Pool_Info pool;
  pool << Object{{"cipher", 4711}};
  EXPECT_EQ(static_cast<int>(pool.cipher), 4711);
  pool << Object{{"cipher", -1}};
  EXPECT_EQ(pool.cipher, ENCRYPT_UNKNOWN);
}

TEST(Pool_Info, KeyThatIsNotBase64ReadsAsEmpty) {
  Pool_Info pool;
  pool << Object{{"key", "not base64!"}, {"iv", ""}};
  EXPECT_EQ(pool.key, "");
  EXPECT_EQ(pool.iv, "");
}

TEST(Pool_Info, WritesWhatItReads) {
  Pool_Info pool, again;
  Object written, rewritten;
  pool << full_description();
  pool >> written;
  again << written;
  again >> rewritten;
  EXPECT_EQ(written, rewritten);
  EXPECT_EQ(written["key"].get_str(), "AAEC/w==");
  EXPECT_EQ(written.size(), full_description().size());
  EXPECT_EQ(again.node_addrs, pool.node_addrs);
}

TEST(Pool_Info, EmptyKeysAreNotWritten) {
  Object written;
  Pool_Info() >> written;
  EXPECT_EQ(written.count("key"), 0u);
  EXPECT_EQ(written.count("iv"), 0u);
}

}  // namespace
