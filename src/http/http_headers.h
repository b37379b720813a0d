#pragma once

#include <string>
#include <vector>

#include "http/http_head.h"
#include "kolt/export.h"

/**
 * The headers of a request or a response, in the order in which they came. Names are compared without regard to case.
 *
 * Threads: belongs to one at a time.
 */
class TESSARIN_API HTTP_Headers {
 public:
  struct Field {
    std::string name;
    std::string value;
  };
  typedef std::vector<Field>::const_iterator const_iterator;

  /// Sets a header. A null @a value removes all of that name; a null @a name does nothing.
  /// @param replace  true: in the place of those of that name; false: one more beside them.
  void put(const char* name, const char* value, bool replace);
  /// The same by number; a number without a name does nothing.
  void put(int head, const char* value, bool replace);

  /// The value, or null if there is none. Valid until the headers change.
  /// @param first  of several headers of that name: true the first, false the last.
  const char* get(const char* name, bool first) const;
  const char* get(int head, bool first) const;

  void clear() { fields_.clear(); }
  bool empty() const { return fields_.empty(); }
  const_iterator begin() const { return fields_.begin(); }
  const_iterator end() const { return fields_.end(); }

 private:
  std::vector<Field> fields_;
};
