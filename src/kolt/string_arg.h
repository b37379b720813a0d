#pragma once

#include <string>

/// Lets one function take either kind of string. Owns nothing: it lives only for the call. A null pointer is empty.
template <typename Char>
class Basic_String_Arg {
 public:
  Basic_String_Arg(const Char* text) : data_(text) {}
  Basic_String_Arg(const std::basic_string<Char>& text) : data_(text.c_str()) {}

  const Char* c_str() const { return data_; }
  bool empty() const { return data_ == nullptr || *data_ == Char(); }

 private:
  const Char* data_;
};
