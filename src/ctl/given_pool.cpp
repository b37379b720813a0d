#include "ctl/given_pool.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "ctl/failure.h"
#include "ctl/options.h"
#include "json_spirit/json_spirit_helper.h"

namespace ctl {

namespace {

Pool_Info read_pool_file(const std::string& file) {
  json_spirit::Value document;
  const bool loaded = json_spirit::load_json(file.c_str(), document, json_spirit::LOAD_STRICT);
  if (!loaded && errno != EBADMSG)
    throw Failure(exit_usage, "The file '" + file + "' cannot be read: " + std::strerror(errno) + ".");
  if (!loaded || document.type() != json_spirit::obj_type)
    throw Failure(exit_usage, "The file '" + file + "' is no JSON object.");
  Pool_Info info;
  info << document.get_obj();
  if (info.url.empty()) throw Failure(exit_usage, "The file '" + file + "' has no 'url' of a pool.");
  info.url = pool_url(info.url);
  return info;
}

}  // namespace

Pool_Info given_pool(const Options& options) {
  if (!options.pool_file.empty()) return read_pool_file(options.pool_file);
  Pool_Info info;
  info.url = pool_url(options.pool);
  return info;
}

std::string pool_url(const std::string& pool) {
  if (pool.empty() || pool.find("://") != std::string::npos) return pool;
  return "file://" + std::filesystem::absolute(pool).lexically_normal().string();
}

std::string shown_url(const std::string& url) {
  const size_t at = url.rfind('@');
  const size_t scheme = url.find("://");
  if (at == std::string::npos || scheme == std::string::npos || at < scheme) return url;
  return url.substr(0, scheme + 3) + url.substr(at + 1);
}

}  // namespace ctl
