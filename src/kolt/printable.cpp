#include "kolt/printable.h"

#include "kolt/string_sprintf.h"
#include "kolt/utf8.h"

namespace {

// The length of the printable character at the start of text; 0 if there is none.
std::size_t printable_length(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  const std::size_t length = kolt::utf8_length(text);
  const bool control = lead < 0x20 || lead == 0x7F || (lead == 0xC2 && length == 2 && text[1] < '\xA0');
  return control || lead == '\\' ? 0 : length;
}

}  // namespace

std::string printable(std::string_view name) {
  std::string text;
  while (!name.empty()) {
    const std::size_t length = printable_length(name);
    if (length != 0)
      text += name.substr(0, length);
    else
      text += string_sprintf("\\x%02X", static_cast<unsigned char>(name[0]));
    name.remove_prefix(length != 0 ? length : 1);
  }
  return text;
}
