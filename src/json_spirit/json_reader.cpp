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

  bool on_object_begin(error_code&) { return open(&place().to_new_object(), nullptr); }
  bool on_object_end(std::size_t, error_code&) { return close(); }
  bool on_array_begin(error_code&) { return open(nullptr, &place().to_new_array()); }
  bool on_array_end(std::size_t, error_code&) { return close(); }

  bool on_key_part(bj::string_view s, std::size_t, error_code&) { return append(s); }
  bool on_key(bj::string_view s, std::size_t, error_code&) {
    append(s);
    key_.swap(text_);
    text_.clear();
    return true;
  }
  bool on_string_part(bj::string_view s, std::size_t, error_code&) { return append(s); }
  bool on_string(bj::string_view s, std::size_t, error_code&) {
    append(s);
    place() = Value(std::move(text_));
    text_.clear();
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

  bool on_bool(bool value, error_code&) { return put(value); }
  bool on_null(error_code&) { return put(Value()); }
  bool on_comment_part(bj::string_view, error_code&) { return true; }
  bool on_comment(bj::string_view, error_code&) { return true; }

 private:
  struct Level {
    Object* object;  // one of the two
    Array* array;
  };

  /// The null value that the next part of the text is to be put into.
  Value& place() {
    if (levels_.empty()) return root_;
    const Level& level = levels_.back();
    if (level.array) return level.array->emplace_back();
    // Keys that come in order, as most writers write them, are put at the end without a search.
    Value& value = level.object->try_emplace(level.object->end(), std::move(key_))->second;
    value = Value();
    return value;
  }

  bool put(Value value) {
    place() = std::move(value);
    return true;
  }
  bool number(Value value) {
    text_.clear();
    return put(std::move(value));
  }
  bool append(bj::string_view s) {
    text_.append(s.data(), s.size());
    return true;
  }
  bool open(Object* object, Array* array) {
    levels_.push_back({object, array});
    return true;
  }
  bool close() {
    levels_.pop_back();
    return true;
  }

  Value& root_;
  std::vector<Level> levels_;
  String_type key_;
  String_type text_;
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
