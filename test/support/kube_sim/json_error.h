#pragma once

#include <string>

namespace kube_sim {

/// What the real server's JSON reader says about a text that is no JSON, e.g. "unexpected end of JSON input".
std::string json_error(const std::string& text);

/// How the real server quotes the body that it could not read: the beginning, as text or as hexadecimal digits.
std::string body_excerpt(const std::string& text);

}  // namespace kube_sim
