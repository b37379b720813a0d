#pragma once

#include <memory>
#include <string_view>

#include "json_spirit/json_spirit_value.h"

namespace json_spirit {

/// Containers inside of containers that a text may have.
constexpr std::size_t MAX_DEPTH = 256;

/**
 * Reads a text that comes in pieces, cut anywhere, and keeps none of it. What it accepts and makes of it is the same as
 * if the pieces had come as one.
 *
 * @code
 *   Value document;
 *   Text_Reader reader(document);
 *   while (receive(chunk))
 *     if (!reader.write(chunk)) break;
 *   if (!reader.finish()) document = Value();
 * @endcode
 */
class TESSARIN_API Text_Reader {
 public:
  /// The document is made in @a out, which must be null, and outlive the reader. It may be looked at after finish().
  explicit Text_Reader(Value& out);
  ~Text_Reader();
  Text_Reader(const Text_Reader&) = delete;
  Text_Reader& operator=(const Text_Reader&) = delete;

  /// The next piece. @retval false  the text is no JSON, whatever comes after; so says every later call.
  bool write(std::string_view chunk);
  /// The text ends here. @retval false  it isn't JSON, or not a whole one; `out` holds what was read before the fault.
  bool finish();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

/// Reads @a text into @a out, which must be null. When false, @a out holds what was read before the fault.
bool read_text(std::string_view text, Value& out);

}  // namespace json_spirit
