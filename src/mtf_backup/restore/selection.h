#pragma once

#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "kolt/export.h"

namespace MTF_BACKUP {

/// Which paths of a set are to be restored.
class TESSARIN_API Selection {
 public:
  /// @param select  objects with `dir`, a path in the set; null: everything.
  /// @retval false  an element has another form; one line at LM_ERROR.
  [[nodiscard]] bool open(const json_spirit::Array* select);

  /// Whether @a path is one of the selected paths or lies below one, in whole components.
  bool contains(const std::string& path) const;

  /// The selected paths, without separators at the end; meaningless where everything is selected.
  const std::vector<std::string>& dirs() const { return dirs_; }

 private:
  bool everything_ = false;
  std::vector<std::string> dirs_;  // without separators at the end
};

/// Whether @a path is @a dir or lies below it, in whole components. "" and "/" hold everything.
TESSARIN_API bool lies_below(const std::string& path, const std::string& dir);

}  // namespace MTF_BACKUP
