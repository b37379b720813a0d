#include "integration/agent_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "support/temp_dir.h"

namespace test_support {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

constexpr char private_directory[] = "/var/cache/velmora/tessarin/k8s/data";
constexpr std::chrono::seconds life_timeout(30);

/// Calls @a done every 10 ms until it is true. False after @a timeout.
template <typename F>
bool poll(std::chrono::seconds timeout, F done) {
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

}  // namespace

Agent_Process::~Agent_Process() {
  if (pid_ > 0) kill();
}

bool Agent_Process::start() {
  const std::string program = AGENT_PROGRAM;
  pid_ = fork();
  if (pid_ == 0) {
    const int log = open(log_path().c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(log, STDERR_FILENO);
    dup2(log, STDOUT_FILENO);
    std::vector<const char*> args;
    for (const std::string& word : before_) args.push_back(word.c_str());
    args.insert(args.end(), {program.c_str(), "--state-dir", state_dir_.c_str()});
    for (const std::string& option : options_) args.push_back(option.c_str());
    args.push_back(nullptr);
    execvp(args.front(), const_cast<char* const*>(args.data()));
    _exit(127);
  }
  client_.reset();
  return poll(life_timeout,
              [&] {
                if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
                  pid_ = -1;
                  return true;
                }
                try {
                  client_ = std::make_unique<ctl::Agent>("unix://" + state_dir_ + "/agent.sock", "");
                  client_->call("agent.info", Object());
                  return true;
                } catch (const std::exception&) {
                  client_.reset();
                  return false;
                }
              }) &&
         client_ != nullptr;
}

int Agent_Process::terminate() {
  if (pid_ <= 0) return -1;
  ::kill(pid_, SIGTERM);
  int status = 0;
  const bool ended = poll(life_timeout, [&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
  if (!ended) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void Agent_Process::kill() {
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

Value Agent_Process::call(const std::string& method, const Object& params) {
  return client_->call(method, params);
}

std::string Agent_Process::submit(const std::string& method, const Object& params) {
  return call(method, params).get_str();
}

Object Agent_Process::task(const std::string& id) {
  Value answer = call("agent.tasks", Object_Maker()("id", id).get_obj());
  Array& tasks = answer.get_obj().at("tasks").get_array();
  return tasks.empty() ? Object() : tasks.front().get_obj();
}

std::string Agent_Process::wait(const std::string& id) {
  std::string state;
  poll(std::chrono::seconds(120), [&] {
    json_spirit::extract(task(id))("state", state);
    return state != "queued" && state != "running";
  });
  return state;
}

std::string Agent_Process::log() const {
  return read_file(log_path());
}

namespace {

Value pool_info(const std::string& pool_dir) {
  return Object_Maker()("url", "file://" + pool_dir);
}

void insert_storage(Object& params, const std::string& pool_dir, int seq) {
  json_spirit::insert(params)("minor_resource_id", Value("resource"))("seq", Value(seq))(
      "access_key", Value("canary-key"))("pool_info", pool_info(pool_dir))("max_seconds_retry", Value(60))(
      "resumption_buffer_size", Value(10485760));
}

}  // namespace

Object backup_params(const std::string& pool_dir, const Object& volumes, int seq, int compression) {
  Array paths;
  for (const auto& [name, directory] : volumes)
    paths << Object_Maker()("data_path", directory)("mount_path", std::string(private_directory) + "/" + name);
  Object params;
  insert_storage(params, pool_dir, seq);
  json_spirit::insert(params)("paths", Value(std::move(paths)))("subtype", Value("full"))(
      "meta", Object_Maker()("pool_uuid", "pool")("host_uuid", "host")("uuid", "set"))(
      "opts", Object_Maker()("compression", compression)("compression_level", 1)("channel_num", 2));
  return params;
}

Object restore_params(const std::string& pool_dir, const Object& volumes, int seq, unsigned long long total_size) {
  Object rules;
  for (const auto& [name, target] : volumes) rules[std::string(private_directory) + "/" + name] = target;
  Object params;
  insert_storage(params, pool_dir, seq);
  json_spirit::insert(params)("rules", Value(std::move(rules)))("total_size", Value(total_size))(
      "node_name_hex", Value("6e6f6465"))("pool_uuid", Value("pool"))("host_uuid", Value("host"))(
      "incarnation", Value(0))("channel_num", Value(2))("concurrent", Value(4));
  return params;
}

std::vector<std::string> private_mounts() {
  std::vector<std::string> found;
  std::ifstream table("/proc/self/mountinfo");
  for (std::string line; std::getline(table, line);)
    if (line.find(" /var/cache/velmora/") != std::string::npos) found.push_back(line);
  return found;
}

}  // namespace test_support
