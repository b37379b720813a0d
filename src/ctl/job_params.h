#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ctl/options.h"
#include "json_spirit/json_spirit_value.h"
#include "kolt/pool_info.h"

namespace ctl {

/// Where sets lie: <pool>/<host>/<resource>.
struct Set_Place {
  Pool_Info pool;
  std::string host;
  std::string resource;
};

/// A set's name and the shell pattern of the directory that it is made from or goes to.
struct Volume {
  std::string name;
  std::string pattern;
};

/// The volumes of a backup. @throws Failure (exit_usage): --name with several patterns, two volumes of one name, a name
/// or pattern that cannot be used.
std::vector<Volume> backup_volumes(const Options& options);

/// The volumes of a restore, from NAME=TARGET, where each TARGET is an existing directory; its pattern matches just
/// that.
/// @throws Failure (exit_usage).
std::vector<Volume> restore_volumes(const Options& options);

/// The `params` of "k8s.backup". @a set_uuid is the new sets' id.
json_spirit::Object backup_params(const Options& options, const Set_Place& place, const std::vector<Volume>& volumes,
                                  uint32_t seq, const std::string& set_uuid);

/// The `params` of "k8s.restore". @a total_size is what all sets hold, in bytes.
json_spirit::Object restore_params(const Options& options, const Set_Place& place, const std::vector<Volume>& volumes,
                                   uint64_t total_size);

/// The last part of a pattern without wildcards: "data" for "/pods/*/data/*"; "root" if there is none.
std::string name_of_pattern(const std::string& pattern);

/// A shell pattern that matches exactly @a path.
std::string pattern_of_path(const std::string& path);

/// An id in the form of a UUID that is always the same for the same text.
std::string stable_uuid(const std::string& text);

}  // namespace ctl
