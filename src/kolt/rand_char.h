#pragma once

#include "kolt/export.h"

namespace kolt {

/// A bit set of character classes.
enum Rand_Char_Set {
  RCS_EMPTY = 0,
  RCS_NUM = 1,
  RCS_LOWER = 2,
  RCS_UPPER = 4,
  /// Signs that are no punctuation of a text: # $ % & * + < = > @ \ ^ | ~
  RCS_LOGO = 8,
  /// ! " ' ( ) , - . / : ; ? [ ] _ ` { }
  RCS_PUNCT = 16,

  RCS_NUM_LOWER = RCS_NUM | RCS_LOWER,
  RCS_NUM_UPPER = RCS_NUM | RCS_UPPER,
  RCS_ALPHA = RCS_LOWER | RCS_UPPER,
  RCS_ALNUM = RCS_NUM | RCS_ALPHA,
  RCS_ALL = RCS_ALNUM | RCS_LOGO | RCS_PUNCT
};

/// A random character, all of the set being equally likely; NUL for the empty set. From the system's secure source.
/// Threads: any.
TESSARIN_API char rand_char(unsigned set);

}  // namespace kolt
