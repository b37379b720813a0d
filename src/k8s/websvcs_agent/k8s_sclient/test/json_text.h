#pragma once

#include <stdexcept>
#include <string>

#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_value.h"

/// The document that a text stands for; throws where it is no JSON.
inline json_spirit::Value json(const std::string& text) {
  json_spirit::Value value;
  if (!json_spirit::loads_json(text.c_str(), value)) throw std::runtime_error("no JSON: " + text);
  return value;
}

inline json_spirit::Object json_object(const std::string& text) {
  return json(text).get_obj();
}

inline std::string text_of(const json_spirit::Value& value) {
  return json_spirit::JSON_Dump(value, false).str();
}
