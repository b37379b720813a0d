#pragma once

#include <string>

#include "kolt/export.h"

namespace client_io {

/// While one lives, log_failure() on its thread keeps the line instead of logging it, for somebody who may try again.
/// Of several lines the last one is kept; of several objects the last one made has them.
class TESSARIN_API Held_Failure {
 public:
  /// @param hold  false: log_failure() logs again, whatever objects there are around.
  explicit Held_Failure(bool hold = true);
  ~Held_Failure();
  Held_Failure(const Held_Failure&) = delete;
  Held_Failure& operator=(const Held_Failure&) = delete;

  /// Logs the line, if there is one, at LM_ERROR. errno stays.
  void tell() const;
  /// The line without its end, empty if there is none.
  const std::string& line() const { return line_; }

  /// Gives a line, without its end, to the object of this thread that wants it; an empty one takes away what it has.
  /// False: there is none.
  static bool keep(const std::string& line);

 private:
  std::string line_;
  const bool hold_;
  Held_Failure* const around_;
};

}  // namespace client_io
