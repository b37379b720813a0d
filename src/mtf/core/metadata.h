#pragma once

#include <string>

#include "json_spirit/json_spirit_value.h"
#include "kolt/export.h"

namespace MTF {

/**
 * The description of a backup job that goes into its sets.
 *
 * Each getter reads one string member: true and the text (which may be empty) in the output; false, with the output
 * as it was, where the member is missing or no string.
 */
class TESSARIN_API Metadata {
 public:
  Metadata() = default;
  explicit Metadata(json_spirit::Object object);

  /// Member "pool_uuid".
  bool get_pool_uuid(std::string& uuid) const;
  /// Member "host_uuid".
  bool get_host_uuid(std::string& uuid) const;
  /// Member "uuid": the set's.
  bool get_uuid(std::string& uuid) const;

  /// All members, the unknown ones included.
  const json_spirit::Object& object() const { return object_; }

 private:
  bool get(const char* key, std::string& text) const;

  json_spirit::Object object_;
};

}  // namespace MTF
