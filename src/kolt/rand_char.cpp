#include "kolt/rand_char.h"

#include <cstdlib>
#include <string>

namespace kolt {

namespace {

struct Char_Class {
  unsigned flag;
  const char* chars;
};

constexpr Char_Class char_classes[] = {
    {RCS_NUM, "0123456789"},       {RCS_LOWER, "abcdefghijklmnopqrstuvwxyz"}, {RCS_UPPER, "ABCDEFGHIJKLMNOPQRSTUVWXYZ"},
    {RCS_LOGO, "#$%&*+<=>@\\^|~"}, {RCS_PUNCT, "!\"'(),-./:;?[]_`{}"},
};

}  // namespace

char rand_char(unsigned set) {
  std::string chars;
  for (const Char_Class& one : char_classes)
    if ((set & one.flag) != 0) chars += one.chars;
  if (chars.empty()) return '\0';
  return chars[arc4random_uniform(static_cast<unsigned>(chars.size()))];
}

}  // namespace kolt
