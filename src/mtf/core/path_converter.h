#pragma once

#include <string>

#include "ace/Recursive_Thread_Mutex.h"
#include "ace/Refcounted_Auto_Ptr.h"
#include "kolt/export.h"

namespace MTF {

/// Says where an entry of a set is restored to. Threads: the operations are const and may be called by many at once.
class TESSARIN_API IPath_Converter {
 public:
  virtual ~IPath_Converter();

  /// True and the path to write in @a target; false, with @a target untouched, where @a path is not to be restored.
  virtual bool convert(const std::string& path, std::string& target) const = 0;
  /**
   * The same answer in two parts, for a caller that opens no path below @a base through a link.
   *
   * @param base the directory that the request named; may be reached through links
   * @param below the rest, relative to @a base, made of plain names only; empty: @a base itself
   *
   * The base behaviour takes convert()'s answer with "/" as @a base.
   */
  virtual bool convert_below(const std::string& path, std::string& base, std::string& below) const;
};

typedef ACE_Refcounted_Auto_Ptr<IPath_Converter, ACE_Recursive_Thread_Mutex> IPath_Converter_var;

}  // namespace MTF
