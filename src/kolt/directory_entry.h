#pragma once

#include <string>

#include "ace/OS_NS_sys_stat.h"

/// Kinds of special directory entries that other systems know. There are none here: always 0.
typedef unsigned int reparse_types_t;

template <typename Char>
struct Directory_Entry_T {
  /// The bare name, without a directory; any bytes but '/' and NUL.
  std::basic_string<Char> name;
  /// Of the entry itself: a symbolic link is not followed.
  ACE_stat stat{};
  reparse_types_t reparse_types = 0;
};

typedef Directory_Entry_T<char> Directory_Entry;
