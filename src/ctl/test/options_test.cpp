#include "ctl/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <sstream>

namespace {

using ctl::Options;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Options_Test : public ::testing::Test {
 protected:
  Options_Test() {
    for (const char* name : {"TESSARIN_AGENT", "TESSARIN_TOKEN_FILE", "TESSARIN_POOL"}) unsetenv(name);
  }

  bool parse(std::vector<const char*> args) {
    args.insert(args.begin(), "tessarinctl");
    return ctl::parse_options(static_cast<int>(args.size()), args.data(), options_, exit_code_, out_, err_);
  }

  Options options_;
  int exit_code_ = -1;
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(Options_Test, A_backup_needs_no_more_than_a_pattern) {
  ASSERT_TRUE(parse({"backup", "/data"}));
  EXPECT_EQ(options_.command, "backup");
  EXPECT_THAT(options_.patterns, ElementsAre("/data"));
  EXPECT_EQ(options_.agent, "unix:///var/lib/tessarin/agent.sock");
  EXPECT_EQ(options_.pool, "");
  EXPECT_EQ(options_.resource, "default");
  EXPECT_EQ(options_.channels, 2u);
  EXPECT_EQ(options_.compression, "auto");
  EXPECT_EQ(options_.level, 1);
  EXPECT_FALSE(options_.seq.has_value());
  EXPECT_FALSE(options_.incremental);
  EXPECT_FALSE(options_.json);
}

TEST_F(Options_Test, A_backup_takes_all_its_options) {
  ASSERT_TRUE(parse({"backup",
                     "--pool",
                     "file:///pool",
                     "--host",
                     "h",
                     "--resource",
                     "r",
                     "--name",
                     "n",
                     "--channels",
                     "4",
                     "--compression",
                     "zstd",
                     "--level",
                     "19",
                     "--incremental",
                     "--seq",
                     "4294967295",
                     "--agent",
                     "http://127.0.0.1:80",
                     "--token-file",
                     "/t",
                     "--ca",
                     "/ca",
                     "--agent-name",
                     "agent.svc",
                     "--json",
                     "/data"}));
  EXPECT_EQ(options_.pool, "file:///pool");
  EXPECT_EQ(options_.host, "h");
  EXPECT_EQ(options_.resource, "r");
  EXPECT_EQ(options_.name, "n");
  EXPECT_EQ(options_.channels, 4u);
  EXPECT_EQ(options_.compression, "zstd");
  EXPECT_EQ(options_.level, 19);
  EXPECT_TRUE(options_.incremental);
  EXPECT_EQ(options_.seq, 4294967295u);
  EXPECT_EQ(options_.agent, "http://127.0.0.1:80");
  EXPECT_EQ(options_.token_file, "/t");
  EXPECT_EQ(options_.ca_file, "/ca");
  EXPECT_EQ(options_.agent_name, "agent.svc");
  EXPECT_TRUE(options_.json);
}

TEST_F(Options_Test, Patterns_mean_what_they_say) {
  ASSERT_TRUE(parse({"backup", "[ab]", "/x/*,y", "c"}));
  EXPECT_THAT(options_.patterns, ElementsAre("./[ab]", "/x/*,y", "c"));
}

TEST_F(Options_Test, A_restore_takes_targets_and_a_number) {
  ASSERT_TRUE(parse({"restore", "--seq", "3", "--incarnation", "2", "a=/x", "b=/y"}));
  EXPECT_EQ(options_.seq, 3u);
  EXPECT_EQ(options_.incarnation, 2u);
  EXPECT_EQ(options_.resource, "default");
  EXPECT_THAT(options_.targets, ElementsAre("a=/x", "b=/y"));
}

TEST_F(Options_Test, Jobs_take_the_description_of_a_pool_from_a_file) {
  ASSERT_TRUE(parse({"backup", "--pool-file", "pool.json", "/data"}));
  EXPECT_EQ(options_.pool_file, "pool.json");
  options_ = Options();
  ASSERT_TRUE(parse({"restore", "--pool-file", "pool.json", "--seq", "1", "a=/x"}));
  EXPECT_EQ(options_.pool_file, "pool.json");
  EXPECT_FALSE(parse({"backup", "--pool", "/pool", "--pool-file", "pool.json", "/data"}));
  EXPECT_EQ(exit_code_, exit_usage);
}

TEST_F(Options_Test, Sets_are_those_of_all_resources) {
  ASSERT_TRUE(parse({"sets", "--pool", "/pool"}));
  EXPECT_EQ(options_.command, "sets list");
  EXPECT_EQ(options_.resource, "");
  options_ = Options();
  ASSERT_TRUE(parse({"sets", "show", "--pool", "/pool", "data:1", "/path"}));
  EXPECT_EQ(options_.command, "sets show");
  EXPECT_THAT(options_.sets.sets, ElementsAre("data:1"));
  EXPECT_EQ(options_.sets.path, "/path");
}

TEST_F(Options_Test, Commands_on_sets_take_their_arguments) {
  ASSERT_TRUE(parse({"sets", "verify", "--data", "a", "b:2", "--pool-file", "pool.json"}));
  EXPECT_EQ(options_.command, "sets verify");
  EXPECT_THAT(options_.sets.sets, ElementsAre("a", "b:2"));
  EXPECT_TRUE(options_.sets.data);
  EXPECT_EQ(options_.pool_file, "pool.json");
  options_ = Options();
  ASSERT_TRUE(parse({"sets", "restore", "--path", "x", "--path", "y", "--to", "/to", "a"}));
  EXPECT_THAT(options_.sets.paths, ElementsAre("x", "y"));
  EXPECT_EQ(options_.sets.target, "/to");
  options_ = Options();
  ASSERT_TRUE(parse({"sets", "export", "a", "-", "--format", "mtf"}));
  EXPECT_EQ(options_.sets.file, "-");
  options_ = Options();
  ASSERT_TRUE(parse({"sets", "prune", "--keep-last", "1", "--keep-daily", "2", "--keep-weekly", "3", "--name", "n"}));
  EXPECT_EQ(options_.sets.keep.last, 1u);
  EXPECT_EQ(options_.sets.keep.daily, 2u);
  EXPECT_EQ(options_.sets.keep.weekly, 3u);
  EXPECT_FALSE(options_.sets.yes);
  for (const std::vector<const char*>& wrong :
       std::vector<std::vector<const char*>>{{"sets", "show"},
                                             {"sets", "remove"},
                                             {"sets", "export", "a", "f"},
                                             {"sets", "export", "a", "f", "--format", "zip"},
                                             {"sets", "restore", "a"},
                                             {"sets", "prune", "--keep-last", "-1"},
                                             {"sets", "nonsense"}}) {
    EXPECT_FALSE(parse(wrong)) << wrong.back();
    EXPECT_EQ(exit_code_, 2) << wrong.back();
  }
}

TEST_F(Options_Test, The_other_commands_take_their_arguments) {
  ASSERT_TRUE(parse({"status", "id", "--watch"}));
  EXPECT_EQ(options_.job, "id");
  EXPECT_TRUE(options_.watch);
  Options jobs;
  options_ = jobs;
  ASSERT_TRUE(parse({"jobs", "--limit", "0"}));
  EXPECT_EQ(options_.limit, 0u);
  ASSERT_TRUE(parse({"size", "/data/*"}));
  EXPECT_THAT(options_.patterns, ElementsAre("/data/*"));
  for (const char* command : {"cancel", "info"}) {
    ASSERT_TRUE(parse({command})) << err_.str();
    EXPECT_EQ(options_.command, command);
  }
}

TEST_F(Options_Test, The_environment_names_agent_token_and_pool) {
  setenv("TESSARIN_AGENT", "unix:///a", 1);
  setenv("TESSARIN_TOKEN_FILE", "/t", 1);
  setenv("TESSARIN_POOL", "file:///p", 1);
  ASSERT_TRUE(parse({"backup", "/data"}));
  EXPECT_EQ(options_.agent, "unix:///a");
  EXPECT_EQ(options_.token_file, "/t");
  EXPECT_EQ(options_.pool, "file:///p");
  for (const char* name : {"TESSARIN_AGENT", "TESSARIN_TOKEN_FILE", "TESSARIN_POOL"}) unsetenv(name);
}

TEST_F(Options_Test, The_command_line_stands_above_the_environment) {
  setenv("TESSARIN_AGENT", "unix:///a", 1);
  ASSERT_TRUE(parse({"jobs", "--agent", "unix:///b"}));
  EXPECT_EQ(options_.agent, "unix:///b");
  unsetenv("TESSARIN_AGENT");
}

TEST_F(Options_Test, Wrong_usage_ends_with_2_and_says_why) {
  const std::vector<std::vector<const char*>> wrong = {{},
                                                       {"unknown"},
                                                       {"backup"},
                                                       {"backup", "--unknown", "/data"},
                                                       {"backup", "--compression", "gzip", "/data"},
                                                       {"backup", "--channels", "0", "/data"},
                                                       {"backup", "--channels", "65", "/data"},
                                                       {"backup", "--level", "23", "/data"},
                                                       {"backup", "--seq", "4294967296", "/data"},
                                                       {"backup", "--seq", "-1", "/data"},
                                                       {"restore", "a=/x"},
                                                       {"restore", "--seq", "1"},
                                                       {"status"},
                                                       {"size"},
                                                       {"size", "/a", "/b"},
                                                       {"cancel", "job"},
                                                       {"cluster"},
                                                       {"sc"},
                                                       {"sc", "check", "--timeout", "2"},
                                                       {"pvc", "clone"},
                                                       {"entries", "check"},
                                                       {"clean"}};
  for (const auto& args : wrong) {
    err_.str("");
    exit_code_ = -1;
    EXPECT_FALSE(parse(args)) << ::testing::PrintToString(args);
    EXPECT_EQ(exit_code_, 2) << ::testing::PrintToString(args);
    EXPECT_NE(err_.str(), "") << ::testing::PrintToString(args);
  }
}

TEST_F(Options_Test, Help_is_printed_and_ends_with_0) {
  EXPECT_FALSE(parse({"backup", "--help"}));
  EXPECT_EQ(exit_code_, 0);
  EXPECT_THAT(out_.str(), HasSubstr("--compression"));
  EXPECT_THAT(out_.str(), HasSubstr("--agent"));
}

TEST_F(Options_Test, The_version_is_printed_and_ends_with_0) {
  EXPECT_FALSE(parse({"--version"}));
  EXPECT_EQ(exit_code_, 0);
  EXPECT_NE(out_.str(), "");
}

TEST_F(Options_Test, Storage_classes_are_tried_out_in_a_namespace_from_a_file_for_some_time) {
  ASSERT_TRUE(parse({"sc", "check"})) << err_.str();
  EXPECT_EQ(options_.command, "sc check");
  EXPECT_TRUE(options_.cluster.asked);
  EXPECT_EQ(options_.cluster.file, "");
  EXPECT_EQ(options_.cluster.ns, "");
  EXPECT_EQ(options_.cluster.timeout, 180);
  ASSERT_TRUE(parse({"sc", "check", "-n", "lab", "--file", "f.json", "--timeout", "30", "--json", "--verbose"}));
  EXPECT_EQ(options_.cluster.ns, "lab");
  EXPECT_EQ(options_.cluster.file, "f.json");
  EXPECT_EQ(options_.cluster.timeout, 30);
  EXPECT_TRUE(options_.cluster.verbose);
  EXPECT_TRUE(options_.json);
}

TEST_F(Options_Test, Command_in_a_pod_stands_behind_two_dashes) {
  ASSERT_TRUE(parse({"exec", "web", "-n", "shop", "-c", "main", "--", "ls", "-l", "--json"})) << err_.str();
  EXPECT_EQ(options_.cluster.name, "web");
  EXPECT_EQ(options_.cluster.ns, "shop");
  EXPECT_EQ(options_.cluster.container, "main");
  EXPECT_THAT(options_.cluster.words, ElementsAre("ls", "-l", "--json"));
  EXPECT_FALSE(options_.json);
  EXPECT_FALSE(parse({"exec", "web"}));
  EXPECT_EQ(exit_code_, 2);
}

TEST_F(Options_Test, Cleaning_takes_a_namespace_and_whether_to_do_it) {
  ASSERT_TRUE(parse({"clean", "shop", "--dry-run"}));
  EXPECT_EQ(options_.cluster.name, "shop");
  EXPECT_TRUE(options_.cluster.dry_run);
  EXPECT_FALSE(options_.cluster.yes);
  EXPECT_FALSE(parse({"clean", "shop", "--dry-run", "--yes"})) << "which of them?";
  EXPECT_EQ(exit_code_, 2);
}

TEST_F(Options_Test, Copies_of_claims_have_a_name_and_may_be_waited_for) {
  for (const char* what : {"clone", "snapshot"}) {
    options_ = Options();
    ASSERT_TRUE(parse({"pvc", what, "data", "--as", "copy", "--wait"})) << err_.str();
    EXPECT_EQ(options_.cluster.name, "data");
    EXPECT_EQ(options_.cluster.copy, "copy");
    EXPECT_TRUE(options_.cluster.wait);
  }
}

TEST_F(Options_Test, Server_token_and_CA_go_together) {
  ASSERT_TRUE(parse({"cluster", "info", "--server", "https://[::1]:6443", "--token-file", "t", "--ca", "c"}));
  EXPECT_EQ(options_.cluster.server, "https://[::1]:6443");
  EXPECT_EQ(options_.cluster.token_file, "t");
  EXPECT_EQ(options_.cluster.ca_file, "c");
  for (const auto& args : std::vector<std::vector<const char*>>{{"cluster", "info", "--server", "https://h"},
                                                                {"cluster", "info", "--token-file", "t"},
                                                                {"cluster", "info", "--ca", "c"}}) {
    EXPECT_FALSE(parse(args));
    EXPECT_EQ(exit_code_, 2);
  }
}

TEST_F(Options_Test, A_secret_is_enciphered_with_a_key_from_a_file) {
  ASSERT_TRUE(parse({"secret", "encrypt", "--public-key", "host.pub", "--json"}));
  EXPECT_EQ(options_.command, "secret encrypt");
  EXPECT_EQ(options_.public_key, "host.pub");
  EXPECT_TRUE(options_.json);
}

TEST_F(Options_Test, A_secret_is_never_an_argument) {
  EXPECT_FALSE(parse({"secret", "encrypt", "--public-key", "host.pub", "s3cret"}));
  EXPECT_EQ(exit_code_, 2);
}

TEST_F(Options_Test, Secret_needs_to_know_what_to_do_and_with_which_key) {
  EXPECT_FALSE(parse({"secret"}));
  EXPECT_EQ(exit_code_, 2);
  EXPECT_FALSE(parse({"secret", "encrypt"}));
  EXPECT_EQ(exit_code_, 2);
}

TEST_F(Options_Test, An_empty_pool_is_refused_and_not_taken_for_the_agents_own) {
  for (const char* option : {"--pool", "--pool-file"}) {
    EXPECT_FALSE(parse({"sets", "list", option, ""})) << option;
    EXPECT_EQ(exit_code_, 2);
    EXPECT_THAT(err_.str(), HasSubstr(option));
  }
  EXPECT_FALSE(parse({"backup", "--pool=", "/data"}));
}

}  // namespace
