#pragma once

#include <string>

namespace test_support {

/// A fresh directory, removed with all that it holds at the end. Aborts the test program when it cannot be made.
class Temp_Dir {
 public:
  /// @param place  an existing directory; empty: where this process keeps temporary files.
  explicit Temp_Dir(const std::string& place = "");
  ~Temp_Dir();
  Temp_Dir(const Temp_Dir&) = delete;
  Temp_Dir& operator=(const Temp_Dir&) = delete;

  const std::string& path() const { return path_; }
  /// The path of @a name below the directory; nothing is made.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  /// Writes a file below the directory, with its parent directories, and returns its path.
  std::string write(const std::string& name, const std::string& content) const;

 private:
  std::string path_;
};

/// The whole content of a file; throws std::runtime_error when it cannot be read.
std::string read_file(const std::string& path);

}  // namespace test_support
