#include "json_spirit/dump.h"

#include <charconv>
#include <cmath>

#include "json_spirit/escape.h"

namespace json_spirit {

namespace {

class Writer {
 public:
  Writer(String_type& out, bool pretty) : out_(out), pretty_(pretty) {}

  void write(const Value& value) {
    switch (value.type()) {
      case obj_type:
        return write(value.get_obj());
      case array_type:
        return write(value.get_array());
      case str_type:
        return write(std::string_view(value.get_str()));
      case secure_str_type:
        return write(pretty_ ? std::string_view("******") : std::string_view(value.get_secure_str()));
      case bool_type:
        out_ += value.get_bool() ? "true" : "false";
        return;
      case int_type:
        return value.is_uint64() ? digits(value.get_uint64()) : digits(value.get_int64());
      case real_type:
        return write(value.get_real());
      case null_type:
        out_ += "null";
        return;
    }
  }

  void write(const Object& object) {
    open('{');
    bool first = true;
    for (const auto& [key, value] : object) {
      next(first);
      write(std::string_view(key));
      out_ += pretty_ ? ": " : ":";
      write(value);
    }
    close('}', first);
  }

  void write(const Array& array) {
    open('[');
    bool first = true;
    for (const Value& value : array) {
      next(first);
      write(value);
    }
    close(']', first);
  }

 private:
  void write(std::string_view text) {
    out_ += '"';
    append_escaped(text, out_);
    out_ += '"';
  }

  void write(double value) {
    if (!std::isfinite(value)) {
      out_ += "null";
      return;
    }
    const std::size_t start = out_.size();
    digits(value);
    if (out_.find_first_of(".e", start) == String_type::npos) out_ += ".0";
  }

  template <typename Number>
  void digits(Number value) {
    char buffer[32];
    out_.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
  }

  void open(char bracket) {
    out_ += bracket;
    ++depth_;
  }
  void next(bool& first) {
    if (!first) out_ += ',';
    first = false;
    new_line();
  }
  void close(char bracket, bool empty) {
    --depth_;
    if (!empty) new_line();
    out_ += bracket;
  }
  void new_line() {
    if (!pretty_) return;
    out_ += '\n';
    out_.append(2 * depth_, ' ');
  }

  String_type& out_;
  const bool pretty_;
  std::size_t depth_ = 0;
};

}  // namespace

JSON_Dump::JSON_Dump(const Value& value, bool pretty) {
  Writer(val_, pretty).write(value);
}
JSON_Dump::JSON_Dump(const Object& object, bool pretty) {
  Writer(val_, pretty).write(object);
}
JSON_Dump::JSON_Dump(const Array& array, bool pretty) {
  Writer(val_, pretty).write(array);
}

}  // namespace json_spirit
