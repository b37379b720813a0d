#include "support/s3rver.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace test_support {

namespace {

std::string script() {
  if (const char* path = getenv("TESSARIN_S3RVER")) return path;
  const char* home = getenv("HOME");
  return std::string(home == nullptr ? "" : home) + "/.cache/tessarin/s3rver/node_modules/s3rver/bin/s3rver.js";
}

[[noreturn]] void run(const std::vector<std::string>& arguments, int out) {
  setenv("NODE_OPTIONS", "--openssl-legacy-provider", 1);  // its continuation tokens are enciphered with DES
  // It answers a PUT while it still opens the object's file, which would come back after a DELETE that follows at once.
  // A single thread does these things in their order.
  setenv("UV_THREADPOOL_SIZE", "1", 1);
  dup2(out, STDOUT_FILENO);
  std::vector<char*> pointers;
  for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  execvp(pointers[0], pointers.data());
  _exit(127);
}

// The last number of the line that tells where it listens.
int read_port(int from) {
  std::string text;
  char byte;
  while (text.find("listening on") == text.npos || text.back() != '\n')
    if (read(from, &byte, 1) == 1)
      text += byte;
    else
      throw std::runtime_error("s3rver did not start: " + text);
  return std::stoi(text.substr(text.rfind(':') + 1));
}

}  // namespace

std::string S3rver::missing() {
  if (access(script().c_str(), R_OK) != 0) return "no s3rver at " + script() + " (scripts/setup installs it)";
  if (system("node --version >/dev/null 2>&1") != 0) return "no node";
  return {};
}

S3rver::S3rver(const std::vector<std::string>& more) {
  std::vector<std::string> arguments = {"node",      script(), "--directory", dir_.path(), "--address",
                                        "127.0.0.1", "--port", "0",           "--silent",  "--configure-bucket",
                                        "bucket"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  process_ = fork();
  if (process_ == 0) run(arguments, out[1]);
  close(out[1]);
  port_ = read_port(out[0]);
  close(out[0]);
}

S3rver::~S3rver() {
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

}  // namespace test_support
