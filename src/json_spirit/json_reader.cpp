// The one place that sees a parser. It tells of the parts of the text one by one; the builder puts each where it belongs
// in the document, and moves nothing after that.
#include "json_spirit/json_reader.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <vector>

#include <boost/json/basic_parser_impl.hpp>

namespace json_spirit {

namespace {

namespace bj = boost::json;
using bj::error_code;

class Builder {
 public:
  static constexpr std::size_t max_array_size = std::numeric_limits<std::size_t>::max();
  static constexpr std::size_t max_object_size = max_array_size;
  static constexpr std::size_t max_string_size = max_array_size;
  static constexpr std::size_t max_key_size = max_array_size;

  explicit Builder(Value& root) : root_(root) {}

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }

  bool on_object_begin(error_code&) { return open(put(Object())); }
  bool on_object_end(std::size_t, error_code&) { return close(); }
  bool on_array_begin(error_code&) { return open(put(Array())); }
  bool on_array_end(std::size_t, error_code&) { return close(); }

  bool on_key_part(bj::string_view s, std::size_t, error_code&) { return append(s); }
  bool on_key(bj::string_view s, std::size_t, error_code&) {
    if (text_.empty()) {
      key_.assign(s.data(), s.size());
    } else {
      append(s);
      key_.swap(text_);
      text_.clear();
    }
    return true;
  }
  bool on_string_part(bj::string_view s, std::size_t, error_code&) { return append(s); }
  bool on_string(bj::string_view s, std::size_t, error_code&) {
    put(whole(s));
    return true;
  }

  bool on_number_part(bj::string_view s, error_code&) { return append(s); }
  bool on_int64(std::int64_t value, bj::string_view, error_code&) { return number(value); }
  bool on_uint64(std::uint64_t value, bj::string_view, error_code&) { return number(value); }
  bool on_double(double rough, bj::string_view s, error_code& ec) {
    append(s);
    double exact;
    const auto [end, fault] = std::from_chars(text_.data(), text_.data() + text_.size(), exact);
    if (fault != std::errc()) exact = std::fabs(rough) < 1 ? std::copysign(0.0, rough) : HUGE_VAL;
    if (std::isinf(exact)) {
      ec = bj::error::exponent_overflow;
      return false;
    }
    return number(exact);
  }

  bool on_bool(bool value, error_code&) {
    put(value);
    return true;
  }
  bool on_null(error_code&) {
    put(Null());
    return true;
  }
  bool on_comment_part(bj::string_view, error_code&) { return true; }
  bool on_comment(bj::string_view, error_code&) { return true; }

 private:
  /// An open container. Its content is looked at, and so made, when the first element comes.
  struct Level {
    explicit Level(Value& value) : container(&value) {}

    void look() {
      if (container->type() == array_type)
        array = &container->get_array();
      else
        object = &container->get_obj();
    }

    Value* container;
    Object* object = nullptr;
    Array* array = nullptr;
  };

  /// Makes the next value of the document, in its place.
  template <typename Content>
  Value& put(Content&& content) {
    if (levels_.empty()) return root_ = Value(std::forward<Content>(content));
    Level& level = levels_.back();
    if (!level.object && !level.array) level.look();
    if (level.array) return level.array->emplace_back(std::forward<Content>(content));
    return put(*level.object, std::forward<Content>(content));
  }

  /// Keys in ascending order go to the end without a search.
  template <typename Content>
  Value& put(Object& object, Content&& content) {
    const std::size_t members = object.size();
    Value& value = object.try_emplace(object.end(), key_, std::forward<Content>(content))->second;
    if (object.size() == members) value = Value(std::forward<Content>(content));
    return value;
  }

  template <typename Number>
  bool number(Number value) {
    text_.clear();
    put(value);
    return true;
  }
  bool append(bj::string_view s) {
    text_.append(s.data(), s.size());
    return true;
  }
  /// The string that ends with @a s.
  String_type whole(bj::string_view s) {
    if (text_.empty()) return String_type(s.data(), s.size());
    append(s);
    String_type text(text_);  // not the buffer itself, which is longer
    text_.clear();
    return text;
  }
  bool open(Value& container) {
    levels_.emplace_back(container);
    return true;
  }
  bool close() {
    levels_.pop_back();
    return true;
  }

  Value& root_;
  std::vector<Level> levels_;
  String_type key_;
  String_type text_;  // of the string or number at hand, if it comes in parts
};

}  // namespace

bool read_text(std::string_view text, Value& out) {
  bj::parse_options options;
  options.max_depth = MAX_DEPTH;
  bj::basic_parser<Builder> parser(options, out);
  error_code fault;
  const std::size_t read = parser.write_some(false, text.data(), text.size(), fault);
  return !fault && read == text.size();
}

}  // namespace json_spirit
