#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>

#include "kolt/export.h"

namespace kolt {

/**
 * Reads a file that holds a secret of this process: a private key, tokens.
 *
 * It must be a regular file of root or the running user. Others may not touch it; its group may read it, not write it,
 * and only where the running user belongs to that group: this is how kubelet shows secrets to a pod with an fsGroup.
 * Links are followed, as kubelet's mounts are made of them.
 *
 * @param longest  in bytes; a longer file is refused.
 * @return empty: @a content holds the file. Otherwise why not, for the caller to log, beginning with the path; @a
 * content is untouched.
 */
TESSARIN_API std::string read_secret_file(const std::string& path, size_t longest, std::string& content);

/// As read_secret_file(), whoever owns or reads the file.
TESSARIN_API std::string read_public_file(const std::string& path, size_t longest, std::string& content);

/// Tells a file from what stood in its place before: another one, or the same one written again.
class TESSARIN_API File_Stamp {
 public:
  /// Of what @a path leads to now. All that cannot be looked at is alike.
  explicit File_Stamp(const std::string& path);
  bool operator==(const File_Stamp& other) const;

 private:
  struct stat status_ {};
};

}  // namespace kolt
