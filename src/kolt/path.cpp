#include "kolt/path.h"

#include <sys/stat.h>

#include <cerrno>

#include "kolt/get_env_r.h"
#include "kolt/mkdir_p.h"
#include "kolt/rand_char.h"

namespace kolt {

namespace {

constexpr std::size_t random_name_size = 16;
constexpr int random_name_tries = 100;

bool is_name_char(char c) {
  return c == '_' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Appends the value of the variable that text names at pos, just behind a '$', and returns the position behind the
// name.
std::size_t append_variable(const std::string& text, std::size_t pos, std::string& out) {
  const bool braced = pos < text.size() && text[pos] == '{';
  const std::size_t begin = braced ? pos + 1 : pos;
  std::size_t end = begin;
  while (end < text.size() && is_name_char(text[end])) ++end;
  const bool closed = !braced || (end < text.size() && text[end] == '}');
  if (end == begin || !closed) {  // not a variable: a '$' like any other character
    out += '$';
    return pos;
  }
  out += get_env_r(text.substr(begin, end - begin).c_str());
  return braced ? end + 1 : end;
}

std::string random_name() {
  std::string name;
  while (name.size() < random_name_size) name += rand_char(RCS_NUM_LOWER);
  return name;
}

}  // namespace

std::string basename(const std::string& path, char separator) {
  const std::size_t last = path.find_last_not_of(separator);
  if (last == std::string::npos) return std::string();
  const std::size_t before = path.find_last_of(separator, last);
  const std::size_t begin = before == std::string::npos ? 0 : before + 1;
  return path.substr(begin, last + 1 - begin);
}

Path::Path_T(Arg a, char sep, bool expand_env) : sep_(sep), expand_env_(expand_env) {
  *this << a;
}
Path::Path_T(Arg a, Arg b, char sep, bool expand_env) : Path_T(a, sep, expand_env) {
  *this << b;
}
Path::Path_T(Arg a, Arg b, Arg c, char sep, bool expand_env) : Path_T(a, b, sep, expand_env) {
  *this << c;
}
Path::Path_T(Arg a, Arg b, Arg c, Arg d, char sep, bool expand_env) : Path_T(a, b, c, sep, expand_env) {
  *this << d;
}
Path::Path_T(Arg a, Arg b, Arg c, Arg d, Arg e, char sep, bool expand_env) : Path_T(a, b, c, d, sep, expand_env) {
  *this << e;
}
Path::Path_T(Arg a, Arg b, Arg c, Arg d, Arg e, Arg f, char sep, bool expand_env)
    : Path_T(a, b, c, d, e, sep, expand_env) {
  *this << f;
}

Path& Path::operator=(const Path_T& other) {
  path_ = other.path_;
  return *this;
}

Path& Path::operator=(Arg path) {
  const std::string text = path.empty() ? std::string() : path.c_str();  // it may be a part of path_
  path_.clear();
  return *this << text;
}

Path& Path::operator<<(Arg component) {
  if (component.empty()) return *this;
  std::string text = component.c_str();
  need_expand_ = expand_env_ && text.find('$') != std::string::npos;
  if (need_expand_) expand(text);
  append(text);
  return *this;
}

void Path::expand(std::string& text) {
  std::string out;
  for (std::size_t pos = 0; pos < text.size();)
    if (text[pos] == '$')
      pos = append_variable(text, pos + 1, out);
    else
      out += text[pos++];
  text.swap(out);
  need_expand_ = false;
}

void Path::append(const std::string& text) {
  if (text.empty()) return;
  if (path_.empty()) {
    path_ = text;
    return;
  }
  path_.erase(path_.find_last_not_of(sep_) + 1);
  path_ += sep_;
  const std::size_t begin = text.find_first_not_of(sep_);
  if (begin != std::string::npos) path_.append(text, begin);
}

Path& Path::join_random(bool* ok) {
  bool found = false;
  for (int i = 0; i < random_name_tries && !found; ++i) {
    Path_T candidate(*this);
    candidate << random_name();
    struct stat ignored;
    found = ::lstat(candidate.c_str(), &ignored) != 0 && errno == ENOENT;
    if (found) path_ = std::move(candidate.path_);
  }
  if (ok != nullptr) *ok = found;
  return *this;
}

bool Path::mkdir(mode_t mode) const {
  return mkdir_p(c_str(), mode, nullptr);
}

}  // namespace kolt
