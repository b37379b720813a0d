// What an administrator writes: the agent's command line, the file that holds it, and the description of a pool. None
// of it ends the program otherwise than by a refusal. The first byte tells which.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "ace/Log_Msg.h"
#include "client_io/client_io_factory.h"
#include "json_spirit/json_spirit_helper.h"
#include "kolt/pool_info.h"
#include "kolt/rate_controller.h"
#include "websvcs/agent_options.h"

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

void parse(std::vector<std::string> words) {
  words.insert(words.begin(), "tessarin-agent");
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  Agent_Options options;
  int exit_code = -1;
  if (!options.parse(static_cast<int>(argv.size()), argv.data(), exit_code)) return check(exit_code >= 0);
  for (const std::string* path : {&options.svc_conf, &options.state_dir, &options.socket}) check(path->front() == '/');
  check(options.host_key.empty() || options.host_key.front() == '/');
  check(options.listen_port == 0 || !options.listen_address.empty());
  check(options.answer_timeout >= 0 && options.idle_timeout >= 0);
  check(options.max_batch > 0 && options.max_connections > 0 && options.max_connections_per_peer > 0);
  check(options.max_request_bytes >= 1024);
}

/// A word per line.
void parse_words(std::string_view text) {
  std::vector<std::string> words;
  while (!text.empty() && words.size() < 50) {
    const size_t end = text.find('\n');
    words.emplace_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  parse(std::move(words));
}

void parse_file(std::string_view text) {
  const int fd = ::memfd_create("config", MFD_CLOEXEC);
  check(fd != -1 && ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
  parse({"--config", "/proc/self/fd/" + std::to_string(fd)});
  ::close(fd);
}

void read_pool(std::string_view text) {
  json_spirit::Value document;
  if (!json_spirit::loads_json(text, document) || document.type() != json_spirit::obj_type) return;
  Pool_Info pool;
  pool << document.get_obj();
  json_spirit::Object written;
  pool >> written;
  Pool_Info again;
  again << written;
  check(again.url == pool.url && again.key == pool.key && again.cipher == pool.cipher);
  Rate_Limits limits;
  limits.from_array_in_object(document.get_obj(), false);
  limits.from_array_in_object(document.get_obj(), true);
  const auto client = make_client_io(pool, "host", Client_IO_Base::Options());
  check(client || errno == EINVAL || errno == ENOTSUP);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool quiet = [] {
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
    std::cout.rdbuf(nullptr);  // help and refusals of the command line
    std::cerr.rdbuf(nullptr);
    return true;
  }();
  if (size == 0 || size > 60'000 || !quiet) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0]) {
    case 'w':
      parse_words(text);
      break;
    case 'f':
      parse_file(text);
      break;
    case 'p':
      read_pool(text);
      break;
  }
  return 0;
}
