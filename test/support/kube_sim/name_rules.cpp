#include "support/kube_sim/name_rules.h"

#include <algorithm>

namespace kube_sim {

using json_spirit::Object;

const char data_key_rule[] =
    "a valid config key must consist of alphanumeric characters, '-', '_' or '.' (e.g. 'key.name',  or 'KEY_NAME',  or "
    "'key-name', regex used for validation is '[-._a-zA-Z0-9]+')";

namespace {

const char subdomain_rule[] =
    "a lowercase RFC 1123 subdomain must consist of lower case alphanumeric characters, '-' or '.', and must start and "
    "end with an alphanumeric character (e.g. 'example.com', regex used for validation is "
    "'[a-z0-9]([-a-z0-9]*[a-z0-9])?(\\.[a-z0-9]([-a-z0-9]*[a-z0-9])?)*')";
const char label_rule[] =
    "a lowercase RFC 1123 label must consist of lower case alphanumeric characters or '-', and must start and end with "
    "an alphanumeric character (e.g. 'my-name',  or '123-abc', regex used for validation is "
    "'[a-z0-9]([-a-z0-9]*[a-z0-9])?')";
const char value_rule[] =
    "a valid label must be an empty string or consist of alphanumeric characters, '-', '_' or '.', and must start and "
    "end with an alphanumeric character (e.g. 'MyValue',  or 'my_value',  or '12345', regex used for validation is "
    "'(([A-Za-z0-9][-A-Za-z0-9_.]*)?[A-Za-z0-9])?')";
const char key_rule[] =
    "a valid label key must consist of alphanumeric characters, '-', '_' or '.', and must start and end with an "
    "alphanumeric character (e.g. 'MyName',  or 'my.name',  or '123-abc', regex used for validation is "
    "'([A-Za-z0-9][-A-Za-z0-9_.]*)?[A-Za-z0-9]') with an optional DNS subdomain prefix and '/' (e.g. "
    "'example.com/MyName')";
bool lower_or_digit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

bool letter_or_digit(char c) {
  return lower_or_digit(c) || (c >= 'A' && c <= 'Z');
}

/// Letters and digits, and between them what @a inside lets through too.
bool framed(const std::string& text, bool (*outside)(char), const char* inside) {
  return !text.empty() && outside(text.front()) && outside(text.back()) &&
         std::all_of(text.begin(), text.end(),
                     [&](char c) { return outside(c) || std::string(inside).find(c) != std::string::npos; });
}

bool is_label(const std::string& text) {
  return framed(text, lower_or_digit, "-");
}

bool is_subdomain(const std::string& text) {
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('.', begin), text.size());
    if (!is_label(text.substr(begin, end - begin))) return false;
    begin = end + 1;
  }
  return true;
}

std::string limit(std::size_t count, const char* unit) {
  return "must be no more than " + std::to_string(count) + " " + unit;
}

}  // namespace

void check_name(const Resource& resource, const std::string& name, Causes& causes) {
  const std::string field = "metadata.name";
  if (resource.kind == "Namespace") {
    if (name.size() > 63) causes.push_back(Cause::invalid(field, quoted(name), limit(63, "characters")));
    if (name.find('.') != std::string::npos)
      causes.push_back(Cause::invalid(field, quoted(name), "must not contain dots"));
    else if (!is_label(name))
      causes.push_back(Cause::invalid(field, quoted(name), label_rule));
    return;
  }
  if (name.size() > 253) causes.push_back(Cause::invalid(field, quoted(name), limit(253, "characters")));
  if (!is_subdomain(name)) causes.push_back(Cause::invalid(field, quoted(name), subdomain_rule));
  if (resource.kind == "CronJob" && name.size() > 52 && causes.empty())
    causes.push_back(Cause::invalid(field, quoted(name), limit(52, "characters")));
}

namespace {

bool is_label_key(const std::string& key) {
  const std::size_t slash = key.find('/');
  if (slash == std::string::npos) return framed(key, letter_or_digit, "-_.") && key.size() <= 63;
  const std::string name = key.substr(slash + 1);
  return is_subdomain(key.substr(0, slash)) && framed(name, letter_or_digit, "-_.") && name.size() <= 63;
}

}  // namespace

void check_labels(const Object& labels, const std::string& field, Causes& causes) {
  for (const auto& [key, value] : labels) {
    if (!is_label_key(key)) causes.push_back(Cause::invalid(field, quoted(key), key_rule));
    if (value.type() != json_spirit::str_type) continue;
    const std::string& text = value.get_str();
    if (text.size() > 63)
      causes.push_back(Cause::invalid(field, quoted(text), limit(63, "bytes")));
    else if (!text.empty() && !framed(text, letter_or_digit, "-_."))
      causes.push_back(Cause::invalid(field, quoted(text), value_rule));
  }
}

void check_label_name(const std::string& name, const std::string& field, Causes& causes) {
  if (name.empty())
    causes.push_back(Cause::required(field));
  else if (name.size() > 63)
    causes.push_back(Cause::invalid(field, quoted(name), limit(63, "characters")));
  else if (!is_label(name))
    causes.push_back(Cause::invalid(field, quoted(name), label_rule));
}

bool is_data_key(const std::string& key) {
  return std::all_of(key.begin(), key.end(),
                     [](char c) { return letter_or_digit(c) || c == '-' || c == '.' || c == '_'; });
}

}  // namespace kube_sim
