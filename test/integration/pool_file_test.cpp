// Jobs on a pool that needs secrets: the command line, the agent and the service each as a process or server of its
// own.
#include <sys/wait.h>

#include <cstdlib>
#include <ctime>
#include <fstream>

#include "ctl/options.h"
#include "ctl/sets/pool.h"
#include "integration/agent_process.h"
#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_helper.h"
#include "mtf_backup/set/set_store.h"
#include "support/fake_s3.h"
#include "support/temp_dir.h"
#include "support/tree_compare.h"
#include "support/tree_maker.h"

namespace test_support {
namespace {

using json_spirit::Object;
using json_spirit::Value;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// What may be seen nowhere: the keys of the storage and of the cipher, and what stands in a file.
constexpr char storage_secret[] = "secret";  // also a word, so it is looked for in quotes and assignments only
constexpr char pool_key[] = "Y2FuYXJ5LWtleS1vZi10aGlydHktdHdvLWJ5dGVzISE=";
constexpr char plain_pool_key[] = "canary-key-of-thirty-two-bytes!!";
constexpr char content[] = "a canary in a file";

class Pool_File : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(agent_.start()) << agent_.log();
    dir_.write("vol/canary", content);
    make_tree(dir_ / "vol/tree", {.files = 200, .bytes = 20'000'000});
    dir_.write("pool.json", R"({"url": "s3://bucket/cluster", "cipher": 4, "key": ")" + std::string(pool_key) +
                                R"(", "default_s3": {"endpoint": ")" + service_.endpoint() +
                                R"(", "access_key_id": "access", "secret_access_key": ")" + storage_secret + R"("}})");
    setenv("TESSARIN_AGENT", ("unix://" + (dir_ / "state/agent.sock")).c_str(), 1);
  }
  void TearDown() override {
    EXPECT_EQ(agent_.terminate(), 0);
    EXPECT_THAT(private_mounts(), IsEmpty());
    expect_no_secret(agent_.log(), "the log");
    expect_no_secret(printed_, "what was printed");
    for (const auto& entry : std::filesystem::recursive_directory_iterator(agent_.state_dir()))
      if (entry.is_regular_file()) expect_no_secret(read_file(entry.path()), entry.path());
    for (const auto& [name, object] : service_.objects()) expect_no_secret(object.bytes, name);
  }

  static void expect_no_secret(const std::string& text, const std::string& where) {
    for (const char* secret : {pool_key, plain_pool_key, "\"secret\"", "=secret", content})
      EXPECT_EQ(text.find(secret), text.npos) << secret << " in " << where;
  }

  /// Runs a command on the pool; its exit code. What it prints is kept.
  int run(const std::string& arguments) {
    const std::string command =
        "'" CTL_PROGRAM "' " + arguments + " --pool-file '" + (dir_ / "pool.json") + "' >'" + (dir_ / "out") + "' 2>&1";
    const int status = std::system(command.c_str());
    out_ = read_file(dir_ / "out");
    printed_ += out_;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  /// The set as "sets show" tells it.
  Object set(const std::string& name) {
    Value document;
    EXPECT_EQ(run("sets show --json " + name), 0) << out_;
    EXPECT_TRUE(json_spirit::loads_json(out_, document)) << out_;
    return document.type() == json_spirit::obj_type ? document.get_obj() : Object();
  }
  std::string restored(int seq) {
    const std::string target = dir_ / ("restored" + std::to_string(seq));
    std::filesystem::create_directory(target);
    EXPECT_EQ(run("restore --seq " + std::to_string(seq) + " vol=" + target), 0) << out_ << agent_.log();
    return target;
  }

  /// Makes all sets younger than their files: what changed less than a minute before a set is read again by the next.
  void age_sets() const {
    ctl::Options options;
    options.pool_file = dir_ / "pool.json";
    const ctl::Pool pool = ctl::Pool::of(options);
    for (auto& [key, record] : pool.sets("", "").sets) {
      const auto storage = pool.storage(key);
      record.begin_time = std::time(nullptr) + 100;
      ASSERT_TRUE(storage->remove(key.set.dir() + "/commit"));
      ASSERT_TRUE(MTF_BACKUP::Set_Store(storage).commit({record.name, record.seq, record.incarnation}, record));
    }
  }

  const Temp_Dir dir_;
  Fake_S3 service_;
  Agent_Process agent_{dir_ / "state"};
  std::string out_;
  std::string printed_;
};

TEST_F(Pool_File, JobsWorkOnEncryptedPoolsInS3AndTheirSecretsStayThere) {
  ASSERT_EQ(run("backup '" + (dir_ / "vol") + "'"), 0) << out_ << agent_.log();
  EXPECT_THAT(out_, HasSubstr("Set vol, number 1\n"));
  const Object full = set("vol");
  EXPECT_EQ(full.at("base").get_str(), "");

  ASSERT_EQ(std::system(("cp -a '" + (dir_ / "vol") + "' '" + (dir_ / "before") + "'").c_str()), 0);
  age_sets();
  dir_.write("vol/new", "new");
  ASSERT_EQ(run("backup --incremental '" + (dir_ / "vol") + "'"), 0) << out_ << agent_.log();
  EXPECT_THAT(out_, HasSubstr("Set vol, number 2\n"));
  const Object incremental = set("vol");
  EXPECT_EQ(incremental.at("base").get_str(), full.at("dir").get_str());
  EXPECT_LT(incremental.at("stored_size").get_uint64(), full.at("stored_size").get_uint64() / 10);

  EXPECT_THAT(compare_trees(dir_ / "before", restored(1)).differences, IsEmpty());
  EXPECT_THAT(compare_trees(dir_ / "vol", restored(2)).differences, IsEmpty());
}

TEST_F(Pool_File, AWrongSecretFailsTheCommandWithoutTellingIt) {
  std::ofstream(dir_ / "pool.json") << R"({"url": "s3://bucket/cluster", "default_s3": {"endpoint": ")" +
                                           service_.endpoint() +
                                           R"(", "access_key_id": "access", "secret_access_key": "canary-wrong"}})";
  EXPECT_EQ(run("backup '" + (dir_ / "vol") + "'"), 5);
  EXPECT_THAT(out_, HasSubstr("Permission denied"));
  EXPECT_EQ(run("backup --seq 1 '" + (dir_ / "vol") + "'"), 1);
  EXPECT_THAT(agent_.log(), HasSubstr("Permission denied"));
  EXPECT_THAT(printed_ + agent_.log(), Not(HasSubstr("canary-wrong")));
}

TEST_F(Pool_File, ALineAboutBrokenParamsHidesTheSecrets) {
  Value pool;
  ASSERT_TRUE(json_spirit::loads_json(read_file(dir_ / "pool.json"), pool));
  Object volumes;
  volumes["vol"] = dir_ / "vol";
  for (const char* method : {"k8s.backup", "k8s.restore"}) {
    Object params = method == std::string("k8s.backup") ? backup_params("/pool", volumes, 1, 0)
                                                        : restore_params("/pool", volumes, 1, 1);
    params["pool_info"] = pool;
    params.erase("max_seconds_retry");  // the line about it prints all params
    EXPECT_EQ(agent_.wait(agent_.submit(method, params)), "failed");
  }
  EXPECT_THAT(agent_.log(), HasSubstr("Failed to extract backup information"));
  EXPECT_THAT(agent_.log(), HasSubstr("Failed to extract restore information"));
}

}  // namespace
}  // namespace test_support
