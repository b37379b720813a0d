#include "support/kube_sim/process_exec.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>
#include <filesystem>

#include "support/kube_sim/exec_status.h"

namespace kube_sim {

namespace {

constexpr size_t largest_frame = 32768;
constexpr int poll_ms = 10;
constexpr unsigned char input_channel = 0, close_channel = 255;

struct Pipe {
  Posix_Fd read_end, write_end;
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    read_end.reset(ends[0]);
    write_end.reset(ends[1]);
  }
};

/// Signals as a fresh process has them, and a process group of its own.
class Spawn_Settings {
 public:
  explicit Spawn_Settings(const std::string& directory) {
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
    posix_spawnattr_init(&attributes);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~Spawn_Settings() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
};

}  // namespace

Process_Exec::Process_Exec(std::vector<std::string> command, std::string directory, bool with_input)
    : command_(std::move(command)), directory_(std::move(directory)), with_input_(with_input) {}

Process_Exec::~Process_Exec() {
  if (process_ < 0) return;
  kill(-process_, SIGKILL);
  wait();
}

int Process_Exec::start() {
  std::error_code ignored;
  std::filesystem::create_directories(directory_, ignored);
  Pipe input, output, error;
  if (!input.write_end || !output.write_end || !error.write_end) return errno;
  Spawn_Settings settings(directory_);
  if (with_input_)
    posix_spawn_file_actions_adddup2(&settings.actions, input.read_end.get(), STDIN_FILENO);
  else
    posix_spawn_file_actions_addopen(&settings.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&settings.actions, output.write_end.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&settings.actions, error.write_end.get(), STDERR_FILENO);
  posix_spawn_file_actions_addclosefrom_np(&settings.actions, STDERR_FILENO + 1);
  std::vector<char*> words;
  for (const std::string& word : command_) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  const int failed = posix_spawnp(&process_, words[0], &settings.actions, &settings.attributes, words.data(), environ);
  if (failed != 0) {
    process_ = -1;
    return failed;
  }
  fcntl(input.write_end.get(), F_SETFL, O_NONBLOCK);
  input_ = std::move(input.write_end);
  outputs_[0].fd = std::move(output.read_end);
  outputs_[1].fd = std::move(error.read_end);
  return 0;
}

void Process_Exec::run(Exec_Stream& stream) {
  stream.send(1, "");
  if (command_.empty()) {
    send_not_started(stream, "args must not be empty");
    return;
  }
  if (const int failed = start()) {
    send_not_started(stream, "exec: \"" + command_[0] + "\": " + std::strerror(failed));
    return;
  }
  while (outputs_[0].fd || outputs_[1].fd) {
    pollfd states[2] = {{outputs_[0].fd.get(), POLLIN, 0}, {outputs_[1].fd.get(), POLLIN, 0}};
    poll(states, 2, poll_ms);
    take_input(stream);
    feed();
    for (int i = 0; i < 2; ++i)
      if (states[i].revents != 0 && !pass_on(stream, outputs_[i])) return;
    if (!stream.open()) return;
  }
  send_exit(stream, wait(), command_);
}

bool Process_Exec::pass_on(Exec_Stream& stream, Output& output) {
  char bytes[largest_frame];
  const ssize_t count = read(output.fd.get(), bytes, sizeof bytes);
  if (count > 0) return stream.send(output.channel, {bytes, static_cast<size_t>(count)});
  output.fd.reset();
  return true;
}

void Process_Exec::take_input(Exec_Stream& stream) {
  std::string frame;
  while (stream.receive(frame, std::chrono::milliseconds(0))) {
    const auto channel = static_cast<unsigned char>(frame.empty() ? 1 : frame[0]);
    if (channel == input_channel) input_waiting_.append(frame, 1);
    const bool closes_input = channel == close_channel && frame.size() > 1 && frame[1] == input_channel;
    if (closes_input && stream.protocol().starts_with("v5.")) input_ends_ = true;
  }
}

void Process_Exec::feed() {
  while (input_ && !input_waiting_.empty()) {
    const ssize_t count = write(input_.get(), input_waiting_.data(), input_waiting_.size());
    if (count > 0)
      input_waiting_.erase(0, static_cast<size_t>(count));
    else if (errno == EAGAIN)
      return;
    else
      input_.reset();
  }
  if (input_ends_) input_.reset();
}

int Process_Exec::wait() {
  int status = 0;
  while (waitpid(process_, &status, 0) < 0 && errno == EINTR) continue;
  process_ = -1;
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace kube_sim
