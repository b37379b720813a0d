#include "mtf/fs/path_converter.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string_view>

namespace MTF_FS {

namespace {

/// No component that leads elsewhere: the path is absolute or relative, but without ".", ".." and empty components.
bool plain_path(std::string_view path) {
  if (path.find('\0') != path.npos) return false;
  if (path.starts_with('/')) path.remove_prefix(1);
  while (!path.empty()) {
    const std::string_view component = path.substr(0, path.find('/'));
    if (component.empty() || component == "." || component == "..") return false;
    path.remove_prefix(component.size());
    if (path.starts_with('/')) path.remove_prefix(1);
  }
  return true;
}

std::string without_end_separators(std::string path) {
  path.erase(path.find_last_not_of('/') + 1);
  return path;
}

/// With one separator between, and none where one side is empty.
std::string join(const std::string& above, std::string_view below) {
  while (below.starts_with('/')) below.remove_prefix(1);
  std::string path = without_end_separators(above);
  if (!below.empty() || path.empty()) path += '/';
  return path.append(below);
}

class Transform_Path_Converter : public MTF::IPath_Converter {
 public:
  Transform_Path_Converter(const std::string& root, const path_transform_rules& rules, bool keep_others,
                           MTF::IPath_Converter_var next)
      : root_(root), keep_others_(keep_others), next_(next) {
    for (const auto& [from, to] : rules) bases_[without_end_separators(from)] = without_end_separators(join(root, to));
  }

  bool convert(const std::string& path, std::string& target) const override {
    std::string base;
    std::string below;
    if (!apply_rules(path, base, below)) return false;
    if (next_.get() != nullptr) return next_->convert(join(base, below), target);
    target = join(base, below);
    return true;
  }

  bool convert_below(const std::string& path, std::string& base, std::string& below) const override {
    if (next_.get() != nullptr) return IPath_Converter::convert_below(path, base, below);
    return apply_rules(path, base, below);
  }

 private:
  bool apply_rules(const std::string& whole, std::string& base, std::string& below) const {
    const std::string path = without_end_separators(whole);
    if (!plain_path(path)) return false;
    for (size_t end = path.size(); end != path.npos; end = end == 0 ? path.npos : path.rfind('/', end - 1)) {
      const auto rule = bases_.find(path.substr(0, end));
      if (rule == bases_.end()) continue;
      base = rule->second.empty() ? "/" : rule->second;
      below = path.substr(std::min(end + 1, path.size()));
      return true;
    }
    if (!keep_others_) return false;
    base = join(root_, "");
    below = path.substr(path.starts_with('/') ? 1 : 0);
    return true;
  }

  const std::string root_;
  const bool keep_others_;
  mutable MTF::IPath_Converter_var next_;     // its operator-> is not const
  std::map<std::string, std::string> bases_;  // rule's path to target, without separators at the end
};

}  // namespace

MTF::IPath_Converter_var create_transform_path_converter(const std::string& root, const path_transform_rules& rules,
                                                         bool keep_others, MTF::IPath_Converter_var next) {
  MTF::IPath_Converter* converter = new (std::nothrow) Transform_Path_Converter(root, rules, keep_others, next);
  if (converter == nullptr) errno = ENOMEM;
  return MTF::IPath_Converter_var(converter);
}

}  // namespace MTF_FS
