#pragma once

#include <sys/types.h>

#include <string>
#include <utility>

#include "kolt/export.h"
#include "kolt/string_arg.h"

namespace kolt {

/// The last component of @a path: what stands behind the last separator, trailing separators left out.
/// Empty for an empty path and for one of separators alone.
TESSARIN_API std::string basename(const std::string& path, char separator);

template <typename Char>
class Path_T;
typedef Path_T<char> Path;

/**
 * Joins components to a path, or to a URL, with exactly one separator between two of them, whatever they end or begin
 * with. An empty component adds nothing. What the first begins with and the last ends with stays as it is.
 *
 * With @a expand_env, $NAME and ${NAME} in a component are replaced by the variable's value, or by nothing if it is not
 * set. Threads: one at a time.
 */
template <>
class TESSARIN_API Path_T<char> {
 public:
  typedef Basic_String_Arg<char> Arg;

  Path_T(Arg a, char sep, bool expand_env);
  Path_T(Arg a, Arg b, char sep, bool expand_env);
  Path_T(Arg a, Arg b, Arg c, char sep, bool expand_env);
  Path_T(Arg a, Arg b, Arg c, Arg d, char sep, bool expand_env);
  Path_T(Arg a, Arg b, Arg c, Arg d, Arg e, char sep, bool expand_env);
  Path_T(Arg a, Arg b, Arg c, Arg d, Arg e, Arg f, char sep, bool expand_env);
  Path_T(const Path_T&) = default;
  Path_T(Path_T&&) = default;

  /// Both forms keep the separator and the expansion of the left side.
  Path_T& operator=(const Path_T& other);
  Path_T& operator=(Arg path);

  /// Appends one component.
  Path_T& operator<<(Arg component);
  /// Appends the components in order.
  template <typename... Args>
  Path_T& join(const Args&... components) {
    return (*this << ... << Arg(components));
  }
  /// Appends a component of random letters and digits that no file has yet.
  /// @param ok  if not null, receives whether such a name was found; if not, nothing is appended.
  Path_T& join_random(bool* ok);

  const char* c_str() const { return path_.c_str(); }
  std::size_t size() const { return path_.size(); }
  bool empty() const { return path_.empty(); }
  const std::string& str() const& { return path_; }
  std::string str() && { return std::move(path_); }

  void clear() { path_.clear(); }
  void resize(std::size_t size) { path_.resize(size); }

  /// Makes the directory with its parents. @return whether it is there now; if not, errno tells why.
  bool mkdir(mode_t mode) const;

 private:
  void expand(std::string& text);
  void append(const std::string& text);

  const char sep_;
  const bool expand_env_;
  bool need_expand_ = false;
  std::string path_;
};

}  // namespace kolt
