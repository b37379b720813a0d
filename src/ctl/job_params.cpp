#include "ctl/job_params.h"

#include <xxhash.h>

#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>

#include "ctl/failure.h"
#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_helper.h"
#include "kolt/compression.h"
#include "kolt/constants.h"

namespace ctl {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

namespace fs = std::filesystem;

/// Where the agent binds the volumes of a job; the last component names the set.
constexpr char data_dir[] = "/var/cache/velmora/tessarin/k8s/data/";
constexpr char wildcards[] = "*?[";
/// Files that a restore works on at a time.
constexpr int concurrent_files = 8;

const std::map<std::string, Compression_Method> compressions = {
    {"none", COMPR_NONE}, {"auto", COMPR_AUTO}, {"lzop", COMPR_LZOP}, {"zstd", COMPR_ZSTD}};

/// JSON has no way to say another byte string.
void require_utf8(const std::string& text) {
  Value copy;
  const std::string document = json_spirit::JSON_Dump(Value(text), false).str();
  if (!json_spirit::loads_json(document.c_str(), copy) || copy.get_str() != text)
    throw Failure(exit_usage, "Not valid UTF-8: " + text + "; a shell pattern with '?' for the odd bytes may help.");
}

void check_name(const std::string& name) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos || name.size() > 255)
    throw Failure(exit_usage, "'" + name + "' is no name for a set: it must not be empty or have a '/'.");
}

void check_volumes(const std::vector<Volume>& volumes) {
  std::set<std::string> names;
  for (const Volume& volume : volumes) {
    check_name(volume.name);
    require_utf8(volume.name);
    require_utf8(volume.pattern);
    if (!names.insert(volume.name).second)
      throw Failure(exit_usage, "Two volumes have the name '" + volume.name + "': give each a job of its own.");
  }
}

/// The agent works in another directory.
std::string absolute_pattern(const std::string& pattern) {
  if (pattern.empty()) throw Failure(exit_usage, "A pattern is empty.");
  if (pattern[0] == '/') return pattern;
  const std::string here = pattern_of_path(fs::current_path());
  return (here == "/" ? here : here + "/") + pattern;
}

std::string without_escapes(const std::string& component) {
  std::string text;
  for (size_t i = 0; i < component.size(); ++i) {
    if (component[i] == '\\' && i + 1 < component.size()) ++i;
    text += component[i];
  }
  return text;
}

bool has_wildcard(const std::string& component) {
  for (size_t i = 0; i < component.size(); ++i) {
    if (component[i] == '\\')
      ++i;
    else if (std::string(wildcards).find(component[i]) != std::string::npos)
      return true;
  }
  return false;
}

Object pool_info(const Set_Place& place) {
  Object pool;
  place.pool >> pool;
  return pool;
}

/// What both jobs have in common.
Object common_params(const Set_Place& place) {
  const char* const access_key = std::getenv("TESSARIN_ACCESS_KEY");
  Object params;
  json_spirit::insert(params)("minor_resource_id", place.resource)("pool_info", pool_info(place))(
      "access_key", access_key != nullptr ? access_key : "")(
      "max_seconds_retry", uint64_t{CLIENT_IO_MAX_SECONDS_RETRY})("resumption_buffer_size",
                                                                  uint64_t{CLIENT_IO_RESUMPTION_BUF_SIZE});
  return params;
}

}  // namespace

std::string name_of_pattern(const std::string& pattern) {
  std::string name = "root";
  for (size_t begin = 0; begin < pattern.size();) {
    const size_t end = std::min(pattern.find('/', begin), pattern.size());
    const std::string component = pattern.substr(begin, end - begin);
    if (!component.empty() && component != "." && !has_wildcard(component)) name = without_escapes(component);
    begin = end + 1;
  }
  return name;
}

std::string pattern_of_path(const std::string& path) {
  std::string pattern;
  for (const char c : path) {
    if (std::string("*?[]\\").find(c) != std::string::npos) pattern += '\\';
    pattern += c;
  }
  return pattern;
}

std::string stable_uuid(const std::string& text) {
  const XXH128_hash_t hash = XXH3_128bits(text.data(), text.size());
  char uuid[40];
  std::snprintf(uuid, sizeof uuid, "%08" PRIx64 "-%04" PRIx64 "-%04" PRIx64 "-%04" PRIx64 "-%012" PRIx64,
                hash.high64 >> 32, hash.high64 >> 16 & 0xFFFF, hash.high64 & 0xFFFF, hash.low64 >> 48,
                hash.low64 & 0xFFFFFFFFFFFF);
  return uuid;
}

std::vector<Volume> backup_volumes(const Options& options) {
  if (!options.name.empty() && options.patterns.size() != 1)
    throw Failure(exit_usage, "--name goes with one pattern only.");
  std::vector<Volume> volumes;
  for (const std::string& given : options.patterns) {
    const std::string pattern = absolute_pattern(given);
    volumes.push_back({options.name.empty() ? name_of_pattern(pattern) : options.name, pattern});
  }
  check_volumes(volumes);
  return volumes;
}

std::vector<Volume> restore_volumes(const Options& options) {
  std::vector<Volume> volumes;
  for (const std::string& target : options.targets) {
    const size_t sign = target.find('=');
    if (sign == std::string::npos) throw Failure(exit_usage, "'" + target + "' is not of the form NAME=TARGET.");
    std::error_code error;
    const fs::path directory = fs::canonical(target.substr(sign + 1), error);
    if (error || !fs::is_directory(directory, error))
      throw Failure(exit_usage, "The target '" + target.substr(sign + 1) + "' is no directory.");
    volumes.push_back({target.substr(0, sign), pattern_of_path(directory)});
  }
  check_volumes(volumes);
  return volumes;
}

Object backup_params(const Options& options, const Set_Place& place, const std::vector<Volume>& volumes, uint32_t seq,
                     const std::string& set_uuid) {
  Array paths;
  for (const Volume& volume : volumes)
    json_spirit::insert(json_spirit::append_new_object(paths))("data_path", volume.pattern)("mount_path",
                                                                                            data_dir + volume.name);
  Object meta;
  json_spirit::insert(meta)("pool_uuid", stable_uuid(place.pool.url))("host_uuid", place.host)("uuid", set_uuid);
  const Compression_Method compression = compressions.at(options.compression);
  Object opts;
  json_spirit::insert(opts)("compression", static_cast<int>(compression))(
      "compression_level", compression == COMPR_NONE ? 0 : options.level)("channel_num", options.channels);

  Object params = common_params(place);
  json_spirit::insert(params)("paths", paths)("meta", meta)("opts", opts)("seq", static_cast<int64_t>(seq))(
      "subtype", options.incremental ? "incremental" : "full");
  return params;
}

Object restore_params(const Options& options, const Set_Place& place, const std::vector<Volume>& volumes,
                      uint64_t total_size) {
  Object rules;
  for (const Volume& volume : volumes) rules[data_dir + volume.name] = volume.pattern;
  Object params = common_params(place);
  // A total of 0 would mark a set of the oldest kind, whose name is told by node_name_hex.
  json_spirit::insert(params)("rules", rules)("total_size", std::max<uint64_t>(total_size, 1))("node_name_hex", "")(
      "pool_uuid", stable_uuid(place.pool.url))("host_uuid", place.host)("seq", static_cast<int64_t>(*options.seq))(
      "incarnation", options.incarnation)("channel_num", options.channels)("concurrent", concurrent_files);
  return params;
}

}  // namespace ctl
