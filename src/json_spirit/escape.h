#pragma once

#include <string>
#include <string_view>

namespace json_spirit {

/**
 * Appends @a text to @a out in the form in which it stands between the quotes of a JSON string.
 *
 * Quotes, backslashes and control characters are escaped. What isn't valid UTF-8 is written as U+FFFD, once for each
 * byte, so that the result always is.
 */
void append_escaped(std::string_view text, std::string& out);

}  // namespace json_spirit
