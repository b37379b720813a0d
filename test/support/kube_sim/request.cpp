#include "support/kube_sim/request.h"

#include <optional>

namespace kube_sim {

namespace {

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

enum class Plus { STAYS, IS_BLANK };

std::optional<std::string> decode(std::string_view text, Plus plus) {
  std::string decoded;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+' && plus == Plus::IS_BLANK) {
      decoded += ' ';
    } else if (text[i] != '%') {
      decoded += text[i];
    } else {
      const int high = i + 2 < text.size() ? hex_digit(text[i + 1]) : -1;
      const int low = i + 2 < text.size() ? hex_digit(text[i + 2]) : -1;
      if (high < 0 || low < 0) return std::nullopt;
      decoded += static_cast<char>(high * 16 + low);
      i += 2;
    }
  }
  return decoded;
}

void add_parameter(Request& request, std::string_view text) {
  if (text.empty() || text.find(';') != text.npos) return;
  const size_t equals = text.find('=');
  const auto name = decode(text.substr(0, equals), Plus::IS_BLANK);
  const auto value = decode(equals == text.npos ? std::string_view() : text.substr(equals + 1), Plus::IS_BLANK);
  if (name && value) request.query.emplace_back(*name, *value);
}

/// Absolute targets name the server once more.
std::string_view without_host(std::string_view target) {
  const size_t scheme = target.find("://");
  if (target.starts_with('/') || scheme == target.npos) return target;
  const size_t path = target.find('/', scheme + 3);
  return path == target.npos ? "/" : target.substr(path);
}

}  // namespace

const std::string* Request::parameter(std::string_view name) const {
  for (const auto& [key, value] : query)
    if (key == name) return &value;
  return nullptr;
}

std::vector<std::string> Request::parameters(std::string_view name) const {
  std::vector<std::string> values;
  for (const auto& [key, value] : query)
    if (key == name) values.push_back(value);
  return values;
}

std::string Request::header(const std::string& name) const {
  const auto found = headers.find(name);
  return found == headers.end() ? std::string() : found->second;
}

bool set_target(Request& request, std::string_view target) {
  request.target = target;
  request.query.clear();
  target = without_host(target);
  const size_t question = target.find('?');
  if (question != target.npos) {
    std::string_view rest = target.substr(question + 1);
    while (!rest.empty()) {
      const size_t ampersand = rest.find('&');
      add_parameter(request, rest.substr(0, ampersand));
      rest = ampersand == rest.npos ? std::string_view() : rest.substr(ampersand + 1);
    }
  }
  const auto path = decode(target.substr(0, question), Plus::STAYS);
  request.path = path.value_or("");
  return path.has_value();
}

}  // namespace kube_sim
