#pragma once

#include <string>

#include "kolt/export.h"

namespace MTF {

/// Lists the entries of a source in place of a walk by directories. The data mover walks: nothing implements this yet.
class TESSARIN_API ISource_Lister {
 public:
  virtual ~ISource_Lister();
  /// The next path, relative to the source; false at the end.
  virtual bool next(std::string& path) = 0;
};

}  // namespace MTF
