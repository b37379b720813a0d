#include "simdjson_reader.h"

#include <simdjson.h>

namespace {

namespace dom = simdjson::dom;
namespace ondemand = simdjson::ondemand;
using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

Value& add_member(Object& object, std::string_view key) {
  return object.try_emplace(object.end(), std::string(key))->second;
}

void build(dom::element element, Value& out) {
  switch (element.type()) {
    case dom::element_type::OBJECT:
      out = Object();
      for (const auto field : dom::object(element)) build(field.value, add_member(out.get_obj(), field.key));
      break;
    case dom::element_type::ARRAY:
      out = Array();
      for (const auto item : dom::array(element)) build(item, out.get_array().emplace_back());
      break;
    case dom::element_type::STRING:
      out = Value(std::string(std::string_view(element)));
      break;
    case dom::element_type::INT64:
      out = Value(std::int64_t(element));
      break;
    case dom::element_type::UINT64:
      out = Value(std::uint64_t(element));
      break;
    case dom::element_type::DOUBLE:
      out = Value(double(element));
      break;
    case dom::element_type::BOOL:
      out = Value(bool(element));
      break;
    case dom::element_type::NULL_VALUE:
      break;
  }
}

// Every access throws simdjson_error on a fault.
template <typename Source>
void build(Source& source, Value& out) {
  switch (ondemand::json_type(source.type())) {
    case ondemand::json_type::object:
      out = Object();
      for (auto field : ondemand::object(source.get_object())) {
        Value& member = add_member(out.get_obj(), field.unescaped_key());
        ondemand::value value = field.value();
        build(value, member);
      }
      break;
    case ondemand::json_type::array:
      out = Array();
      for (auto item : ondemand::array(source.get_array())) {
        ondemand::value value = std::move(item).value();
        build(value, out.get_array().emplace_back());
      }
      break;
    case ondemand::json_type::string:
      out = Value(std::string(std::string_view(source.get_string())));
      break;
    case ondemand::json_type::number: {
      ondemand::number number = source.get_number();
      out = number.is_int64()    ? Value(number.get_int64())
            : number.is_uint64() ? Value(number.get_uint64())
                                 : Value(number.get_double());
      break;
    }
    case ondemand::json_type::boolean:
      out = Value(bool(source.get_bool()));
      break;
    case ondemand::json_type::null:
      break;
  }
}

}  // namespace

bool read_by_simdjson_dom(const std::string& text, Value& out) {
  dom::parser parser;
  dom::element root;
  if (parser.parse(text).get(root)) return false;
  build(root, out);
  return true;
}

bool read_by_simdjson_ondemand(const std::string& text, Value& out) {
  const simdjson::padded_string padded(text);
  ondemand::parser parser;
  ondemand::document root;
  if (parser.iterate(padded).get(root)) return false;
  build(root, out);
  return true;
}
