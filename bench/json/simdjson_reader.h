#pragma once

#include <string>

#include "json_spirit/json_spirit_value.h"

/// The two other ways to read a text into our model, kept so that the choice can be measured again. Neither refuses all
/// that loads_json() refuses.
bool read_by_simdjson_dom(const std::string& text, json_spirit::Value& out);
bool read_by_simdjson_ondemand(const std::string& text, json_spirit::Value& out);
