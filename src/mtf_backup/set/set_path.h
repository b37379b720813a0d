#pragma once

#include <string>

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

}  // namespace MTF_BACKUP
