// The commands on sets of every kind of pool and compression.
#include <memory>

#include "ctl/test/sets_fixture.h"
#include "support/fake_s3.h"
#include "support/s3rver.h"
#include "support/tree_maker.h"

namespace {

using namespace ctl;
using ctl_test::Sets_Fixture;
using test_support::Fake_S3;
using test_support::S3rver;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

enum class Service { directory, s3_of_others, s3_that_checks };

struct Pool_Kind {
  const char* name;
  Service service;
  Encryption_Algorithm cipher;
  Compression_Method compression;
};

/// A full set and two that build on it, in such a pool.
class Sets_Pools : public Sets_Fixture, public ::testing::WithParamInterface<Pool_Kind> {
 protected:
  void SetUp() override {
    if (GetParam().service == Service::s3_of_others) {
      if (!S3rver::missing().empty()) GTEST_SKIP() << S3rver::missing();
      s3rver_ = std::make_unique<S3rver>();
      use_bucket(s3rver_->endpoint(), "S3RVER", "S3RVER");
    } else if (GetParam().service == Service::s3_that_checks) {
      fake_s3_ = std::make_unique<Fake_S3>();
      use_bucket(fake_s3_->endpoint(), "access", "secret");
    }
    if (GetParam().cipher != ENCRYPT_NONE) {
      info_.cipher = GetParam().cipher;
      info_.key = std::string(GetParam().cipher == ENCRYPT_AES_128_CBC ? 16 : 32, 'k');
    }
    describe_pool();
    make_chain();
  }

  void use_bucket(const std::string& endpoint, const std::string& key, const std::string& secret) {
    info_.url = "s3://bucket/pool";
    info_.default_s3 = {{"endpoint", endpoint}, {"access_key_id", key}, {"secret_access_key", secret}};
  }

  void make_chain() {
    test_support::make_tree(source_ + "/tree", {.files = 60, .bytes = 3'000'000});
    write("docs/first", noise(300'000));
    write_sparse("docs/sparse");
    for (uint32_t seq = 1; seq <= 3; ++seq) {
      write("new" + std::to_string(seq), "number " + std::to_string(seq));
      ASSERT_TRUE(back_up({.seq = seq, .compression = GetParam().compression, .incremental = seq > 1}));
    }
  }

  std::string extracted(const std::string& archive) {
    const std::string to = made("extracted");
    EXPECT_EQ(shell("tar --warning=no-timestamp --xattrs --xattrs-include='*' -xpf " + archive + " -C " + to), "");
    return to + source_;
  }

  std::unique_ptr<S3rver> s3rver_;
  std::unique_ptr<Fake_S3> fake_s3_;
};

class Encrypted_Pools : public Sets_Pools {};

constexpr Pool_Kind plain_kinds[] = {{"Lzop", Service::directory, ENCRYPT_NONE, COMPR_LZOP},
                                     {"S3", Service::s3_of_others, ENCRYPT_NONE, COMPR_ZSTD}};
constexpr Pool_Kind encrypted_kinds[] = {{"Encrypted", Service::directory, ENCRYPT_AES_256_GCM, COMPR_LZOP},
                                         {"S3Encrypted", Service::s3_that_checks, ENCRYPT_AES_128_CBC, COMPR_AUTO}};

std::string name_of(const ::testing::TestParamInfo<Pool_Kind>& kind) {
  return kind.param.name;
}

INSTANTIATE_TEST_SUITE_P(Plain, Sets_Pools, ::testing::ValuesIn(plain_kinds), name_of);
INSTANTIATE_TEST_SUITE_P(Encrypted, Sets_Pools, ::testing::ValuesIn(encrypted_kinds), name_of);
INSTANTIATE_TEST_SUITE_P(Encrypted, Encrypted_Pools, ::testing::ValuesIn(encrypted_kinds), name_of);

TEST_P(Sets_Pools, Sets_are_listed_and_shown) {
  EXPECT_EQ(run({"sets", "--json"}), exit_ok) << failure_;
  EXPECT_THAT(document().at("sets").get_array(), SizeIs(3));
  EXPECT_EQ(run({"sets", "show", "data:2", "docs"}), exit_ok) << failure_;
  EXPECT_THAT(out_.str(), ContainsRegex(" 300000 .* first\n"));
  EXPECT_EQ(run({"sets", "find", "new*", "data:3"}), exit_ok) << failure_;
  EXPECT_THAT(out_.str(), ContainsRegex("/new1\n.*/new2\n.*/new3\n"));
}

TEST_P(Sets_Pools, Sets_are_verified_byte_by_byte) {
  EXPECT_EQ(run({"sets", "verify", "--data"}), exit_ok) << failure_;
  EXPECT_EQ(out_.str(), "data:1.1  whole\ndata:2.1  whole\ndata:3.1  whole\n");
  EXPECT_EQ(run({"sets", "verify", "--data", "data:3"}), exit_ok) << failure_;
}

TEST_P(Sets_Pools, Sets_of_a_chain_are_restored_whole_and_in_part) {
  EXPECT_EQ(run({"sets", "restore", "data", "--to", made("all")}), exit_ok) << failure_ << err_.str();
  EXPECT_EQ(differences(source_, dir_ / "all/source"), "");
  EXPECT_EQ(run({"sets", "restore", "data:2", "--path", "docs/first", "--path", "new2", "--to", made("part")}), exit_ok)
      << failure_;
  EXPECT_EQ(test_support::read_file(dir_ / "part/first"), noise(300'000));
  EXPECT_EQ(test_support::read_file(dir_ / "part/new2"), "number 2");
}

TEST_P(Sets_Pools, Sets_of_a_chain_are_exported_whole) {
  EXPECT_EQ(run({"sets", "export", "data:3", "--format", "tar", dir_ / "set.tar"}), exit_ok) << failure_;
  EXPECT_EQ(differences(source_, extracted(dir_ / "set.tar")), "");
  EXPECT_EQ(run({"sets", "export", "data:3", "--format", "mtf", dir_ / "set.bkf"}), exit_ok) << failure_;
  const std::string listed = shell("python3 " READ_MTF " " + (dir_ / "set.bkf"));
  const std::string digest = shell("sha256sum < '" + source_ + "/docs/first'").substr(0, 64);
  EXPECT_THAT(listed, HasSubstr("\nF docs/first 300000 " + digest + "\n"));
  for (const char* file : {"new1", "new2", "new3"}) EXPECT_THAT(listed, HasSubstr("\nF " + std::string(file) + " 8 "));
}

TEST_P(Sets_Pools, Sets_are_removed_with_those_that_need_them) {
  EXPECT_EQ(run({"sets", "remove", "data:1"}), exit_usage);
  EXPECT_EQ(run({"sets", "prune", "--keep-last", "2", "--yes"}), exit_ok) << failure_;
  EXPECT_THAT(out_.str(), ContainsRegex("data:1.1 .* keep +needed by data:2.1 and 1 more  "));
  EXPECT_EQ(run({"sets", "remove", "data:3"}), exit_ok) << failure_;
  EXPECT_EQ(run({"sets", "verify", "--data"}), exit_ok);
  EXPECT_EQ(out_.str(), "data:1.1  whole\ndata:2.1  whole\n");
  EXPECT_EQ(run({"sets", "remove", "data:1", "--with-dependents"}), exit_ok) << failure_;
  EXPECT_EQ(run({"sets", "--json"}), exit_ok);
  EXPECT_THAT(document().at("sets").get_array(), IsEmpty());
  if (fake_s3_) {
    EXPECT_THAT(fake_s3_->objects(), IsEmpty());
  }
}

TEST_P(Encrypted_Pools, With_a_wrong_key_nothing_is_told_removed_or_lost) {
  test_support::Log_Capture log;
  for (const std::string& key : {std::string(info_.key.size(), 'x'), std::string()}) {
    const Pool_Info right = info_;
    info_.key = key;
    if (key.empty()) info_.cipher = ENCRYPT_NONE;
    describe_pool();
    EXPECT_EQ(run({"sets", "list"}), exit_job_failed);
    EXPECT_THAT(out_.str(), Not(HasSubstr("data ")));
    EXPECT_EQ(run({"sets", "show", "data"}), exit_pool);
    EXPECT_EQ(run({"sets", "verify", "data"}), exit_job_failed);
    EXPECT_EQ(run({"sets", "restore", "data", "--to", made("to")}), exit_pool);
    EXPECT_EQ(run({"sets", "export", "data", "--format", "tar", dir_ / "set.tar"}), exit_job_failed);
    EXPECT_FALSE(std::filesystem::exists(dir_ / "set.tar"));
    EXPECT_EQ(run({"sets", "prune", "--keep-last", "1", "--yes"}), exit_job_failed) << failure_;
    EXPECT_EQ(run({"sets", "prune", "--keep-last", "1", "--yes", "--ignore-damaged"}), exit_job_failed) << failure_;
    EXPECT_EQ(run({"sets", "remove", "data:1"}), exit_pool);
    info_ = right;
  }
  describe_pool();
  EXPECT_EQ(run({"sets", "verify", "--data"}), exit_ok);
  EXPECT_EQ(out_.str(), "data:1.1  whole\ndata:2.1  whole\ndata:3.1  whole\n");
}

}  // namespace
