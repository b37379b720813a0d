// What the agent tells of itself while it works: pages, metrics, log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "integration/agent_process.h"
#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "support/temp_dir.h"
#include "support/tree_maker.h"

namespace test_support {
namespace {

using json_spirit::Object;
using json_spirit::Value;
using testing::HasSubstr;
using testing::Not;

constexpr char canary[] = "cAnArY7fW2";

class Watch : public ::testing::Test {
 protected:
  void start(std::vector<std::string> options = {}) {
    options.insert(options.end(), {"--kubelet-dir", dir_.path()});
    agent_ = std::make_unique<Agent_Process>(dir_ / "state", std::move(options));
    ASSERT_TRUE(agent_->start()) << agent_->log();
  }
  void TearDown() override {
    if (!agent_) return;
    EXPECT_EQ(agent_->terminate(), 0) << agent_->log();
  }

  std::string pool() const { return dir_ / "pool"; }

  Object params_of_backup() {
    Tree_Options options;
    options.files = 40;
    options.bytes = 3'000'000;
    make_tree(dir_ / "vol", options);
    Object volumes;
    volumes["vol"] = dir_ / "vol";
    return backup_params(pool(), volumes, 1, 3);
  }

  /// Runs the backup and gives how it ended.
  std::string back_up(const Object& params) { return agent_->wait(agent_->submit("k8s.backup", params)); }

  std::string metrics() { return agent_->get("/metrics").body; }

  double metric(const std::string& series) {
    const std::string text = "\n" + metrics();
    const std::size_t at = text.find("\n" + series + " ");
    return at == std::string::npos ? -1 : std::stod(text.substr(at + series.size() + 2));
  }

  /// Waits until the checks of the node have run.
  ctl::Agent::Page checked(const std::string& path) {
    ctl::Agent::Page page = agent_->get(path);
    for (int i = 0; i < 1000 && page.body.find("has not been looked at yet") != std::string::npos; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      page = agent_->get(path);
    }
    return page;
  }

  Temp_Dir dir_;
  std::unique_ptr<Agent_Process> agent_;
};

TEST_F(Watch, HealthIsToldWithoutDetailsByTheStatus) {
  start();
  const auto page = agent_->get("/healthz");
  EXPECT_EQ(page.status, 200);
  EXPECT_THAT(page.body, ::testing::StartsWith("ok\ntask manager answered "));
}

TEST_F(Watch, AgentIsReadyWhenAllChecksAreFine) {
  std::filesystem::create_directory(pool());
  start({"--check-pool", "file://" + pool()});
  const auto page = checked("/readyz");
  EXPECT_EQ(page.body, "ok\nkubelet: ok\npropagation: ok\nbind: ok\nprivate: ok\nstate: ok\npool: ok\n");
  EXPECT_EQ(page.status, 200);
}

TEST_F(Watch, AgentWithoutItsPoolIsNotReadyAndSaysWhy) {
  start({"--check-pool", "file://" + pool()});
  const auto page = checked("/readyz");
  EXPECT_EQ(page.status, 503);
  EXPECT_THAT(page.body, ::testing::StartsWith("not ready\n"));
  EXPECT_THAT(page.body, HasSubstr("pool: the pool cannot be reached: No such file or directory\n"));
  EXPECT_EQ(metric("tessarin_check_ok{check=\"pool\"}"), 0);
  EXPECT_EQ(metric("tessarin_check_ok{check=\"state\"}"), 1);
}

TEST_F(Watch, ProbesNeedNoTokenAndLearnNoReasons) {
  start({"--listen", "127.0.0.1:0", "--check-pool", "file://" + pool()});
  checked("/readyz");
  const std::string log = agent_->log();
  const std::size_t at = log.find("127.0.0.1 port ");
  ASSERT_NE(at, std::string::npos) << log;
  const std::string url = "http://127.0.0.1:" + std::to_string(std::stoi(log.substr(at + 15)));
  ctl::Agent stranger(url, "");
  EXPECT_EQ(stranger.get("/healthz").body, "ok\n");
  EXPECT_EQ(stranger.get("/readyz").body, "not ready\npool\n");
  EXPECT_EQ(stranger.get("/readyz").status, 503);
  EXPECT_EQ(stranger.get("/metrics").status, 401);
  EXPECT_EQ(stranger.get("/").status, 401);
  ctl::Agent friendly(url, dir_ / "state/token");
  EXPECT_EQ(friendly.get("/metrics").status, 200);
}

TEST_F(Watch, MetricsAreInTheFormOfPrometheusAndDocumentsNameOnlyThese) {
  start();
  checked("/readyz");
  ASSERT_EQ(back_up(params_of_backup()), "completed") << agent_->log();
  const auto page = agent_->get("/metrics");
  EXPECT_EQ(page.type, "text/plain; version=0.0.4; charset=utf-8");
  const std::string file = dir_.write("metrics", page.body);
  EXPECT_EQ(std::system(("python3 " CHECK_METRICS " " + file).c_str()), 0);
  EXPECT_THAT(page.body, Not(HasSubstr(dir_.path()))) << "a path is no value of a label";
}

TEST_F(Watch, MetricsMoveWithARealJob) {
  start();
  EXPECT_EQ(metric("tessarin_jobs_total{state=\"completed\",type=\"backup\"}"), 0);
  ASSERT_EQ(back_up(params_of_backup()), "completed") << agent_->log();
  EXPECT_EQ(metric("tessarin_jobs_total{state=\"completed\",type=\"backup\"}"), 1);
  EXPECT_EQ(metric("tessarin_job_duration_seconds_count{type=\"backup\"}"), 1);
  EXPECT_GE(metric("tessarin_moved_bytes_total{operation=\"backup\"}"), 2'000'000);
  EXPECT_GE(metric("tessarin_moved_files_total{operation=\"backup\"}"), 30);
  EXPECT_EQ(metric("tessarin_speed_bytes_per_second{operation=\"backup\"}"), 0);
  EXPECT_GT(metric("tessarin_storage_bytes_total{direction=\"written\"}"), 0);
  EXPECT_GT(metric("tessarin_storage_operation_seconds_count{operation=\"commit\"}"), 0);
  EXPECT_GT(metric("tessarin_job_last_success_timestamp_seconds{type=\"backup\"}"), 1.6e9);
  EXPECT_EQ(metric("tessarin_binds"), 0);
  EXPECT_GT(metric("process_resident_memory_bytes"), 1e6);
  EXPECT_GT(metric("process_threads"), 3);
  EXPECT_NEAR(metric("process_start_time_seconds"), static_cast<double>(time(nullptr)), 300);
}

TEST_F(Watch, LastSuccessOutlivesTheAgent) {
  start();
  ASSERT_EQ(back_up(params_of_backup()), "completed") << agent_->log();
  const double before = metric("tessarin_job_last_success_timestamp_seconds{type=\"backup\"}");
  ASSERT_EQ(agent_->terminate(), 0);
  ASSERT_TRUE(agent_->start());
  EXPECT_EQ(metric("tessarin_job_last_success_timestamp_seconds{type=\"backup\"}"), before);
}

TEST_F(Watch, StatusPageShowsJobsAndChecksAndEscapesWhatTheyHold) {
  start();
  Object volumes;
  volumes["vol"] = dir_ / "<b>none&";
  const std::string failed = back_up(backup_params(pool(), volumes, 1, 3));
  EXPECT_EQ(failed, "failed");
  ASSERT_EQ(back_up(params_of_backup()), "completed") << agent_->log();
  const auto page = checked("/");
  EXPECT_EQ(page.status, 200);
  EXPECT_EQ(page.type, "text/html; charset=utf-8");
  EXPECT_THAT(page.body, HasSubstr("sets within the last 24 hours: <b>1</b>. Failed jobs: <b>1</b>."));
  EXPECT_THAT(page.body, HasSubstr("&lt;b&gt;none&amp;"));
  EXPECT_THAT(page.body, Not(HasSubstr("<b>none")));
  EXPECT_THAT(page.body, HasSubstr("class=\"ok\">ok"));
  EXPECT_THAT(page.body, Not(HasSubstr("<script")));
}

std::string everything_below(const std::string& directory) {
  std::string all;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory))
    if (entry.is_regular_file()) all += read_file(entry.path());
  return all;
}

/// A job whose every secret is the canary, and which fails in a way that puts its params into the log.
class Canary : public Watch, public ::testing::WithParamInterface<const char*> {
 protected:
  Object params_with_secrets() {
    Object params = params_of_backup();
    params["access_key"] = canary;
    Object& pool_info = params["pool_info"].get_obj();
    for (const char* name : {"key", "iv", "tenant_access_key"}) pool_info[name] = canary;
    Object attributes;
    for (const char* name : {"access_key", "secret_key", "secret_access_key", "session_token", "password"})
      attributes[name] = canary;
    pool_info["ext_attrs"] = attributes;
    pool_info["default_s3"] = attributes;
    return params;
  }
};

TEST_P(Canary, NoSecretOfAJobIsLoggedStoredOrHandedOn) {
  start({"--log-format", GetParam()});
  Object good = params_with_secrets();
  back_up(good);
  Object incomplete = good;
  incomplete.erase("subtype");  // what is missing is told with the whole of the params
  EXPECT_EQ(back_up(incomplete), "failed");
  EXPECT_THAT(agent_->log(), HasSubstr("Failed to extract backup information from"));
  EXPECT_THAT(agent_->log(), HasSubstr("******"));
  EXPECT_THAT(agent_->log(), Not(HasSubstr(canary)));
  EXPECT_THAT(everything_below(dir_ / "state"), Not(HasSubstr(canary)));
  EXPECT_THAT(json_spirit::JSON_Dump(agent_->call("agent.tasks", Object()), false).str(), Not(HasSubstr(canary)));
  for (const char* page : {"/", "/metrics", "/readyz"}) EXPECT_THAT(agent_->get(page).body, Not(HasSubstr(canary)));
  const std::string proc = "/proc/" + std::to_string(agent_->pid());
  EXPECT_EQ(read_file(proc + "/task/" + std::to_string(agent_->pid()) + "/children"), "") << "it starts no program";
  EXPECT_THAT(read_file(proc + "/cmdline"), Not(HasSubstr(canary)));
}

INSTANTIATE_TEST_SUITE_P(Formats, Canary, ::testing::Values("text", "json"));

TEST_F(Watch, EachLineOfAJsonLogIsAnObject) {
  start({"--log-format", "json"});
  Object volumes;
  volumes["vol"] = dir_ / "none";
  const std::string id = agent_->submit("k8s.backup", backup_params(pool(), volumes, 1, 3));
  EXPECT_EQ(agent_->wait(id), "failed");
  std::istringstream lines(agent_->log());
  bool named = false;
  for (std::string line; std::getline(lines, line);) {
    Value value;
    ASSERT_TRUE(json_spirit::loads_json(line, value) && value.type() == json_spirit::obj_type) << line;
    for (const char* name : {"time", "priority", "message", "thread"})
      EXPECT_EQ(value.get_obj().count(name), 1u) << line;
    std::string task;
    json_spirit::object_get(value.get_obj(), "task", task);
    named = named || task == id;
  }
  EXPECT_TRUE(named) << agent_->log();
}

/// `tessarinctl dashboard`, and a browser where there is one.
class Dashboard : public Watch {
 protected:
  void TearDown() override {
    if (pid_ > 0) {
      ::kill(pid_, SIGINT);
      int status = 0;
      waitpid(pid_, &status, 0);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    Watch::TearDown();
  }

  /// The URL that it prints.
  std::string show() {
    int ends[2];
    if (pipe(ends) != 0) return "";
    pid_ = fork();
    if (pid_ == 0) {
      dup2(ends[1], STDOUT_FILENO);
      const std::string agent = "unix://" + (dir_ / "state/agent.sock");
      execl(CTL_PROGRAM, "tessarinctl", "dashboard", "--agent", agent.c_str(), nullptr);
      _exit(127);
    }
    ::close(ends[1]);
    std::string url;
    for (char c; ::read(ends[0], &c, 1) == 1 && c != '\n';) url += c;
    ::close(ends[0]);
    return url;
  }

  pid_t pid_ = 0;
};

TEST_F(Dashboard, ShowsThePageToWhoKnowsTheUrlOnly) {
  start();
  const std::string url = show();
  ASSERT_THAT(url, ::testing::MatchesRegex("http://127\\.0\\.0\\.1:[0-9]+/[0-9A-Za-z]{43}/"));
  const std::size_t path = url.find('/', 8);
  ctl::Agent browser(url.substr(0, path), "");
  const auto page = browser.get(url.substr(path));
  EXPECT_EQ(page.status, 200);
  EXPECT_THAT(page.body, HasSubstr("<h1>Tessarin agent"));
  EXPECT_EQ(browser.get("/").status, 401);
  EXPECT_EQ(browser.get(url.substr(path, 20) + "/").status, 401);
}

TEST_F(Dashboard, PageIsReadableInABrowser) {
  if (std::system("command -v chromium > /dev/null") != 0) GTEST_SKIP() << "There is no chromium.";
  start();
  ASSERT_EQ(back_up(params_of_backup()), "completed") << agent_->log();
  checked("/");
  const std::string url = show();
  const std::string picture = dir_ / "page.png";
  const std::string command =
      "HOME=" + dir_.path() +
      " timeout 100 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run"
      " --disable-background-networking --disable-component-update --disable-sync --disable-dev-shm-usage"
      " --user-data-dir=" +
      (dir_ / "profile") + " --window-size=900,760";
  ASSERT_EQ(
      std::system((command + " --dump-dom " + url + " > " + (dir_ / "dom") + " 2> " + (dir_ / "browser.log")).c_str()),
      0)
      << read_file(dir_ / "browser.log");
  const std::string dom = read_file(dir_ / "dom");
  EXPECT_THAT(dom, HasSubstr("<td data-name=\"State\" class=\"completed\">completed</td>"));
  EXPECT_THAT(read_file(dir_ / "browser.log"), Not(HasSubstr("Content Security Policy")));
  ASSERT_EQ(std::system((command + " --screenshot=" + picture + " " + url + " 2> /dev/null").c_str()), 0);
  EXPECT_GT(std::filesystem::file_size(picture), 5'000u);
  if (const char* const keep = std::getenv("TESSARIN_KEEP_PICTURE")) std::filesystem::copy_file(picture, keep);
}

}  // namespace
}  // namespace test_support
