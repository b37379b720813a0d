#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace MTF_BACKUP {

/// The path in the set of what lies at @a below in a source.
inline std::string path_in_set(const std::string& source, const std::string& below) {
  if (below.empty()) return source;
  return source.empty() || source.back() != '/' ? source + '/' + below : source + below;
}

/// The path of the entry @a name of a directory; @a name empty: the directory itself.
inline std::string join_names(const std::string& directory, const std::string& name) {
  if (directory.empty() || name.empty()) return directory.empty() ? name : directory;
  return directory + '/' + name;
}

/// Whether every component is a name that means nothing else: not empty, "." or "..", and without NUL. So for no path.
inline bool has_plain_names(std::string_view path) {
  if (path.empty()) return true;
  if (path.find('\0') != path.npos) return false;
  for (size_t start = 0; start <= path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    const std::string_view name = path.substr(start, end - start);
    if (name.empty() || name == "." || name == "..") return false;
    start = end + 1;
  }
  return true;
}

/// Whether a path leads to where it does not say: it has a component "..", or a NUL.
inline bool leads_elsewhere(std::string_view path) {
  return path.find('\0') != path.npos || ("/" + std::string(path) + "/").find("/../") != std::string::npos;
}

}  // namespace MTF_BACKUP
