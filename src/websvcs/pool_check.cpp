#include "websvcs/pool_check.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "client_io/client_io_factory.h"
#include "json_spirit/json_spirit_value.h"
#include "kolt/pool_info.h"

namespace {

constexpr std::string_view file_scheme = "file://";
constexpr int patience_sec = 10;

/// @return what is wrong.
std::string read_description(const std::string& path, Pool_Info& info) {
  json_spirit::Value value;
  if (!json_spirit::load_json(path.c_str(), value, json_spirit::LOAD_STRICT) || value.type() != json_spirit::obj_type) {
    return "'" + path + "' cannot be read as the description of a pool";
  }
  info << value.get_obj();
  return "";
}

/// A directory that is not there would list as empty.
bool is_there(const std::string& url) {
  struct stat status;
  return !url.starts_with(file_scheme) || ::stat(url.c_str() + file_scheme.size(), &status) == 0;
}

}  // namespace

std::string pool_fault(const std::string& pool) {
  Pool_Info info;
  info.url = pool;
  std::string fault = pool.starts_with('/') ? read_description(pool, info) : "";
  if (!fault.empty()) return fault;

  Client_IO_Base::Options options;
  options.socket_timeout_seconds = patience_sec;
  options.max_seconds_retry = 0;
  const auto client = make_client_io(info, "", options);
  if (!client) return "the description of the pool is refused";
  bool found = false;
  const auto see_one = [&found](const Client_IO_Base::Object_Info&) {
    found = true;
    return false;
  };
  if (is_there(info.url) && (client->list("", see_one) || found)) return "";
  return std::string("the pool cannot be reached: ") + std::strerror(errno);
}
