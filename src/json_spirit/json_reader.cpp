// The one place that sees a parser. It tells of the parts of the text one by one; the builder puts each where it
// belongs in the document, and moves nothing after that.
#include "json_spirit/json_reader.h"

#include <charconv>
#include <cmath>
#include <functional>
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

  /// The document is made in @a root.
  explicit Builder(Value& root) : root_(root) {}

  /// What is told from now on lies in @a chunk.
  void begin(std::string_view chunk) { input_ = chunk; }
  /// The chunk goes away; a key whose value has not come yet stays.
  void end() {
    if (!lies_in_input(key_)) return;
    key_text_ = key_;
    key_ = key_text_;
  }

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }

  bool on_object_begin(error_code&) { return open(put(Object())); }
  bool on_object_end(std::size_t, error_code&) { return close(); }
  bool on_array_begin(error_code&) { return open(put(Array())); }
  bool on_array_end(std::size_t, error_code&) { return close(); }

  bool on_key_part(bj::string_view s, std::size_t, error_code&) { return append(s); }
  bool on_key(bj::string_view s, std::size_t, error_code&) {
    if (text_.empty() && lies_in_input(s)) {
      key_ = s;
      return true;
    }
    append(s);
    key_text_.swap(text_);
    text_.clear();
    key_ = key_text_;
    return true;
  }
  bool on_string_part(bj::string_view s, std::size_t, error_code&) { return append(s); }
  bool on_string(bj::string_view s, std::size_t, error_code&) {
    if (text_.empty()) {
      put(Text{s});
      return true;
    }
    append(s);
    put(Text{text_});
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

  /// A text that becomes a string where the string is to lie, at its exact length.
  struct Text {
    operator String_type() const { return String_type(view); }
    std::string_view view;
  };

  /// Makes the next value of the document, in its place.
  template <typename Content>
  Value& put(const Content& content) {
    if (levels_.empty()) return root_ = Value(content);
    Level& level = levels_.back();
    if (!level.object && !level.array) level.look();
    if (level.array) return level.array->emplace_back(content);
    return put(*level.object, content);
  }

  /// Keys in ascending order go to the end without a search.
  template <typename Content>
  Value& put(Object& object, const Content& content) {
    const std::size_t members = object.size();
    Value& value = object.emplace_hint(object.end(), key_, content)->second;
    if (object.size() == members) value = Value(content);
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
  bool lies_in_input(std::string_view s) const {
    return std::less_equal<>()(input_.data(), s.data()) && std::less<>()(s.data(), input_.data() + input_.size());
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
  std::string_view input_;
  std::vector<Level> levels_;
  std::string_view key_;  // of the next value; lies in the input or in key_text_
  String_type key_text_;
  String_type text_;  // of the string or number at hand, if it comes in parts
};

}  // namespace

class Text_Reader::Impl {
 public:
  explicit Impl(Value& out) : parser_(options(), out) {}

  /// @param more  whether the text may go on behind @a chunk.
  bool write(std::string_view chunk, bool more) {
    if (!good_) return false;
    error_code fault;
    parser_.handler().begin(chunk);
    const std::size_t read = parser_.write_some(more, chunk.data(), chunk.size(), fault);
    good_ = !fault && read == chunk.size();
    if (more) parser_.handler().end();
    return good_;
  }

 private:
  static bj::parse_options options() {
    bj::parse_options options;
    options.max_depth = MAX_DEPTH;
    return options;
  }

  bj::basic_parser<Builder> parser_;
  bool good_ = true;
};

Text_Reader::Text_Reader(Value& out) : impl_(std::make_unique<Impl>(out)) {}
Text_Reader::~Text_Reader() = default;

bool Text_Reader::write(std::string_view chunk) {
  return impl_->write(chunk, true);
}

bool Text_Reader::finish() {
  return impl_->write("", false);
}

bool read_text(std::string_view text, Value& out) {
  Text_Reader reader(out);
  return reader.write(text) && reader.finish();
}

}  // namespace json_spirit
