#pragma once

#include <string>

#include "json_spirit/json_spirit_value.h"
#include "kolt/utf8.h"
#include "mtf_backup/set/percent.h"

namespace ctl {

/**
 * Adds a text of a set, which may hold any bytes, to a document. JSON holds UTF-8 only: where the text is none, U+FFFD
 * stands for what is not, and the member "<key>_bytes" beside it has the exact bytes, with %XX as in a commit record.
 */
inline void insert_bytes(json_spirit::Object& document, const std::string& key, const std::string& bytes) {
  document[key] = bytes;
  if (!kolt::is_utf8(bytes)) document[key + "_bytes"] = MTF_BACKUP::percent_encode(bytes);
}

}  // namespace ctl
