#include "ctl/job_params.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>

#include "ctl/failure.h"
#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_helper.h"
#include "support/temp_dir.h"

namespace {

using namespace ctl;

Set_Place place_at(const std::string& url) {
  Set_Place place{{}, "host-1", "res-1"};
  place.pool.url = url;
  return place;
}

const Set_Place place = place_at("file:///pool");

/// What a job is told of a pool that is known by its URL alone.
constexpr char plain_pool[] = R"({
  "uuid": "", "name": "", "host_uuid": "", "url": "file:///pool", "device_exists": true, "multidevice": false,
  "server_side_encryption": false, "cipher": 0, "preferred_source_address": "", "tenant_access_key": "",
  "ext_attrs": {}, "node_addrs": [], "dedup_backend_type": "", "default_s3": {}, "s3_enabled": false})";

json_spirit::Value json(const char* text) {
  json_spirit::Value value;
  EXPECT_TRUE(json_spirit::loads_json(text, value)) << text;
  return value;
}

std::string text(const json_spirit::Value& value) {
  return json_spirit::JSON_Dump(value, true).str();
}

Options backup_of(std::vector<std::string> patterns) {
  Options options;
  options.command = "backup";
  options.patterns = std::move(patterns);
  return options;
}

Options restore_to(std::vector<std::string> targets) {
  Options options;
  options.command = "restore";
  options.seq = 7;
  options.targets = std::move(targets);
  return options;
}

Exit_Code code_of(const std::function<void()>& function) {
  try {
    function();
  } catch (const Failure& failure) {
    return failure.code();
  }
  return exit_ok;
}

TEST(Job_Params, A_backup_sends_all_that_the_job_needs) {
  unsetenv("TESSARIN_ACCESS_KEY");
  Options options = backup_of({"/pods/*/data", "/etc"});
  options.compression = "zstd";
  options.level = 5;
  options.channels = 4;
  const json_spirit::Value sent = backup_params(options, place, backup_volumes(options), 9, "set-uuid");
  json_spirit::Value expected = json(R"({
    "paths": [{"data_path": "/pods/*/data", "mount_path": "/var/cache/velmora/tessarin/k8s/data/data"},
              {"data_path": "/etc", "mount_path": "/var/cache/velmora/tessarin/k8s/data/etc"}],
    "meta": {"host_uuid": "host-1", "uuid": "set-uuid"},
    "minor_resource_id": "res-1",
    "opts": {"compression": 3, "compression_level": 5, "channel_num": 4},
    "seq": 9, "subtype": "full", "max_seconds_retry": 600, "resumption_buffer_size": 10485760,
    "access_key": ""})");
  expected.get_obj()["pool_info"] = json(plain_pool);
  expected.get_obj()["meta"].get_obj()["pool_uuid"] = stable_uuid("file:///pool");
  EXPECT_EQ(text(sent), text(expected));
}

TEST(Job_Params, An_incremental_backup_says_so) {
  Options options = backup_of({"/etc"});
  options.incremental = true;
  const json_spirit::Object sent = backup_params(options, place, backup_volumes(options), 9, "set-uuid");
  EXPECT_EQ(sent.at("subtype").get_str(), "incremental");
}

TEST(Job_Params, Without_compression_the_level_is_0) {
  Options options = backup_of({"/etc"});
  options.compression = "none";
  options.level = 5;
  json_spirit::Object params = backup_params(options, place, backup_volumes(options), 1, "u");
  EXPECT_EQ(text(params["opts"]), text(json(R"({"compression": 0, "compression_level": 0, "channel_num": 2})")));
}

TEST(Job_Params, Compressions_go_by_their_numbers) {
  Options options = backup_of({"/etc"});
  const std::pair<const char*, int> numbers[] = {{"none", 0}, {"auto", 1}, {"lzop", 2}, {"zstd", 3}};
  for (const auto& [name, number] : numbers) {
    options.compression = name;
    json_spirit::Object params = backup_params(options, place, backup_volumes(options), 1, "u");
    EXPECT_EQ(params["opts"].get_obj()["compression"].get_int(), number);
  }
}

TEST(Job_Params, The_access_key_comes_from_the_environment) {
  setenv("TESSARIN_ACCESS_KEY", "k", 1);
  const Options options = backup_of({"/etc"});
  EXPECT_EQ(backup_params(options, place, backup_volumes(options), 1, "u")["access_key"].get_str(), "k");
  unsetenv("TESSARIN_ACCESS_KEY");
}

TEST(Job_Params, A_restore_sends_a_rule_per_set) {
  unsetenv("TESSARIN_ACCESS_KEY");
  test_support::Temp_Dir dir;
  const std::string target = std::filesystem::canonical(dir.path());
  Options options = restore_to({"a=" + target, "b=/"});
  options.incarnation = 2;
  options.channels = 3;
  const json_spirit::Value sent = restore_params(options, place, restore_volumes(options), 1234);
  json_spirit::Value expected = json(R"({
    "rules": {"/var/cache/velmora/tessarin/k8s/data/b": "/"},
    "total_size": 1234, "node_name_hex": "", "minor_resource_id": "res-1", "host_uuid": "host-1",
    "seq": 7, "incarnation": 2, "channel_num": 3, "concurrent": 8, "access_key": "",
    "max_seconds_retry": 600, "resumption_buffer_size": 10485760})");
  expected.get_obj()["pool_info"] = json(plain_pool);
  expected.get_obj()["rules"].get_obj()["/var/cache/velmora/tessarin/k8s/data/a"] = target;
  expected.get_obj()["pool_uuid"] = stable_uuid("file:///pool");
  EXPECT_EQ(text(sent), text(expected));
}

TEST(Job_Params, The_whole_description_of_a_pool_is_sent) {
  Set_Place s3 = place_at("s3://bucket/prefix");
  s3.pool.default_s3 = {{"secret_access_key", "s"}};
  s3.pool.cipher = ENCRYPT_AES_128_CBC;
  s3.pool.key = std::string("\0k", 2);
  const Options options = backup_of({"/etc"});
  const json_spirit::Object pool =
      backup_params(options, s3, backup_volumes(options), 1, "u").at("pool_info").get_obj();
  EXPECT_EQ(pool.at("url").get_str(), "s3://bucket/prefix");
  EXPECT_EQ(pool.at("default_s3").get_obj().at("secret_access_key").get_str(), "s");
  EXPECT_EQ(pool.at("cipher").get_int(), 1);
  EXPECT_EQ(pool.at("key").get_str(), "AGs=");
}

TEST(Job_Params, A_restore_of_nothing_is_not_taken_for_one_of_an_old_set) {
  const Options options = restore_to({"a=/"});
  EXPECT_EQ(restore_params(options, place, restore_volumes(options), 0)["total_size"].get_uint64(), 1u);
}

TEST(Job_Params, Wildcards_in_a_target_stand_for_themselves) {
  test_support::Temp_Dir dir;
  const std::string odd = dir / "a[b]*?\\c";
  std::filesystem::create_directory(odd);
  const std::string pattern = restore_volumes(restore_to({"a=" + odd})).front().pattern;
  EXPECT_EQ(pattern.substr(pattern.rfind('/')), "/a\\[b\\]\\*\\?\\\\c");
}

TEST(Job_Params, A_target_may_have_an_equals_sign) {
  test_support::Temp_Dir dir;
  std::filesystem::create_directory(dir / "x=y");
  const Volume volume = restore_volumes(restore_to({"a=" + (dir / "x=y")})).front();
  EXPECT_EQ(volume.name, "a");
  EXPECT_EQ(volume.pattern.substr(volume.pattern.rfind('/')), "/x=y");
}

TEST(Job_Params, A_target_is_an_existing_directory) {
  test_support::Temp_Dir dir;
  const std::string file = dir.write("file", "x");
  EXPECT_EQ(code_of([&] { restore_volumes(restore_to({"a=" + (dir / "missing")})); }), exit_usage);
  EXPECT_EQ(code_of([&] { restore_volumes(restore_to({"a=" + file})); }), exit_usage);
  EXPECT_EQ(code_of([&] { restore_volumes(restore_to({"a="})); }), exit_usage);
  EXPECT_EQ(code_of([&] { restore_volumes(restore_to({"a"})); }), exit_usage);
}

TEST(Job_Params, A_set_is_named_after_the_last_part_without_wildcards) {
  EXPECT_EQ(name_of_pattern("/var/lib/data"), "data");
  EXPECT_EQ(name_of_pattern("/var/lib/data/"), "data");
  EXPECT_EQ(name_of_pattern("/pods/*/volumes/pvc-1/mount"), "mount");
  EXPECT_EQ(name_of_pattern("/pods/*/volumes/*"), "volumes");
  EXPECT_EQ(name_of_pattern("/pods/x?/[ab]"), "pods");
  EXPECT_EQ(name_of_pattern("/a\\*b/*"), "a*b");
  EXPECT_EQ(name_of_pattern("/data/."), "data");
  EXPECT_EQ(name_of_pattern("/"), "root");
  EXPECT_EQ(name_of_pattern("/*"), "root");
}

TEST(Job_Params, A_relative_pattern_counts_from_here) {
  const std::string here = pattern_of_path(std::filesystem::current_path());
  EXPECT_EQ(backup_volumes(backup_of({"a/*"})).front().pattern, here + "/a/*");
}

TEST(Job_Params, A_name_is_for_one_pattern) {
  Options options = backup_of({"/a", "/b"});
  options.name = "n";
  EXPECT_EQ(code_of([&] { backup_volumes(options); }), exit_usage);
  options.patterns.pop_back();
  EXPECT_EQ(backup_volumes(options).front().name, "n");
}

TEST(Job_Params, Two_volumes_of_one_name_are_refused) {
  EXPECT_EQ(code_of([] { backup_volumes(backup_of({"/a/data", "/b/data"})); }), exit_usage);
  EXPECT_EQ(code_of([] { restore_volumes(restore_to({"a=/", "a=/tmp"})); }), exit_usage);
}

TEST(Job_Params, A_name_is_one_path_component) {
  for (const char* name : {".", "..", "a/b"}) {
    Options options = backup_of({"/a"});
    options.name = name;
    EXPECT_EQ(code_of([&] { backup_volumes(options); }), exit_usage) << name;
  }
  EXPECT_EQ(code_of([] { restore_volumes(restore_to({"=/"})); }), exit_usage);
  EXPECT_EQ(code_of([] { backup_volumes(backup_of({"/a/.."})); }), exit_usage);
}

TEST(Job_Params, Names_that_JSON_cannot_carry_are_refused) {
  EXPECT_EQ(code_of([] { backup_volumes(backup_of({"/a\xFF"})); }), exit_usage);
  EXPECT_EQ(backup_volumes(backup_of({"/\u00E4"})).front().name, "\u00E4");
}

TEST(Job_Params, The_same_text_gives_the_same_id) {
  EXPECT_EQ(stable_uuid("a"), stable_uuid("a"));
  EXPECT_NE(stable_uuid("a"), stable_uuid("b"));
  EXPECT_EQ(stable_uuid("a").size(), 36u);
}

}  // namespace
