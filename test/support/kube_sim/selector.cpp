#include "support/kube_sim/selector.h"

#include <algorithm>
#include <map>

#include "json_spirit/extract.h"
#include "support/kube_sim/status_document.h"

namespace kube_sim {

using json_spirit::Object;
using json_spirit::pextract;
using json_spirit::Value;

/// Reads the grammar of label selectors, one token of look-ahead.
class Label_Selector_Parser {
 public:
  explicit Label_Selector_Parser(const std::string& text) : text_(text) { next(); }

  std::vector<Label_Selector::Requirement> parse() {
    std::vector<Label_Selector::Requirement> all;
    if (token_.empty()) return all;
    for (;;) {
      all.push_back(requirement());
      if (token_.empty()) return all;
      if (token_ != ",") fail("',' or 'end of string'");
      next();
    }
  }

 private:
  typedef Label_Selector::Operation Operation;

  Label_Selector::Requirement requirement() {
    const bool negated = accept("!");
    const std::string key = identifier();
    if (negated) return {key, Operation::absent, {}};
    if (accept("=") || accept("==")) return {key, Operation::in, {value()}};
    if (accept("!=")) return {key, Operation::not_in, {value()}};
    if (accept("in")) return {key, Operation::in, values()};
    if (accept("notin")) return {key, Operation::not_in, values()};
    if (!token_.empty() && token_ != ",") fail("in, notin, =, ==, !=, gt, lt");
    return {key, Operation::exists, {}};
  }

  std::set<std::string> values() {
    if (!accept("(")) fail("'('");
    std::set<std::string> all;
    do all.insert(value());
    while (accept(","));
    if (!accept(")")) fail("',', or ')'");
    return all;
  }

  std::string identifier() {
    if (token_.empty() || symbol(token_.front())) fail("identifier");
    return take();
  }

  // A value may be empty.
  std::string value() {
    if (token_.empty() || token_ == "," || token_ == ")") return {};
    return identifier();
  }

  bool accept(const char* token) {
    if (token_ != token) return false;
    next();
    return true;
  }

  std::string take() {
    std::string taken = token_;
    next();
    return taken;
  }

  void next() {
    while (at_ < text_.size() && text_[at_] == ' ') ++at_;
    const std::size_t begin = at_;
    if (at_ == text_.size()) {
      token_.clear();
      return;
    }
    if (!symbol(text_[at_])) {
      while (at_ < text_.size() && text_[at_] != ' ' && !symbol(text_[at_])) ++at_;
    } else {
      ++at_;
      if ((text_[begin] == '=' || text_[begin] == '!') && at_ < text_.size() && text_[at_] == '=') ++at_;
    }
    token_ = text_.substr(begin, at_ - begin);
  }

  static bool symbol(char c) { return std::string("=!,()").find(c) != std::string::npos; }

  [[noreturn]] void fail(const std::string& expected) const {
    throw bad_request("unable to parse requirement: found '" + token_ + "', expected: " + expected);
  }

  const std::string& text_;
  std::size_t at_ = 0;
  std::string token_;
};

Label_Selector::Label_Selector(const std::string& text) : requirements_(Label_Selector_Parser(text).parse()) {}

bool Label_Selector::holds(const Requirement& requirement, const std::string* value) {
  switch (requirement.operation) {
    case Operation::in:
      return value && requirement.values.count(*value);
    case Operation::not_in:
      return !value || !requirement.values.count(*value);
    case Operation::exists:
      return value;
    default:
      return !value;
  }
}

bool Label_Selector::matches(const Value& object) const {
  if (empty()) return true;
  static const Object none;
  const Object* labels = &none;
  pextract(object)("/metadata/labels", labels);
  return std::all_of(requirements_.begin(), requirements_.end(), [&](const Requirement& requirement) {
    return holds(requirement, json_spirit::object_get_str(*labels, requirement.key));
  });
}

namespace {

const std::set<std::string>& fields_of(const std::string& plural) {
  static const std::map<std::string, std::set<std::string>> fields{
      {"pods",
       {"spec.nodeName", "spec.restartPolicy", "spec.schedulerName", "spec.serviceAccountName", "status.phase",
        "status.podIP", "status.nominatedNodeName"}},
      {"events",
       {"involvedObject.kind", "involvedObject.namespace", "involvedObject.name", "involvedObject.uid",
        "involvedObject.apiVersion", "involvedObject.resourceVersion", "involvedObject.fieldPath", "reason",
        "reportingComponent", "source", "type"}},
      {"nodes", {"spec.unschedulable"}},
      {"namespaces", {"status.phase"}},
      {"secrets", {"type"}},
      {"jobs", {"status.successful"}},
      {"replicasets", {"status.replicas"}}};
  static const std::set<std::string> none;
  const auto found = fields.find(plural);
  return found == fields.end() ? none : found->second;
}

std::string text_at(const Value& object, const std::string& pointer) {
  const Value* value = nullptr;
  pextract(object)(pointer.c_str(), value);
  if (!value) return {};
  if (value->type() == json_spirit::str_type) return value->get_str();
  if (value->type() == json_spirit::int_type) return std::to_string(value->get_int64());
  if (value->type() == json_spirit::bool_type) return value->get_bool() ? "true" : "false";
  return {};
}

}  // namespace

Field_Selector::Field_Selector(const std::string& text, const Resource& resource) {
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    const std::string term = text.substr(begin, end - begin);
    begin = end + 1;
    if (term.empty()) continue;
    const std::size_t equals = term.find('=');
    if (equals == std::string::npos || equals == 0)
      throw bad_request("invalid selector: '" + text + "'; can't understand '" + term + "'");
    const bool negated = term[equals - 1] == '!';
    std::string field = term.substr(0, equals - negated);
    const bool doubled = !negated && term.compare(equals, 2, "==") == 0;
    if (field != "metadata.name" && !(field == "metadata.namespace" && resource.namespaced) &&
        !fields_of(resource.plural).count(field))
      throw bad_request("field label not supported: " + field);
    if (field == "source") field = "source.component";
    std::replace(field.begin(), field.end(), '.', '/');
    requirements_.push_back({"/" + field, !negated, term.substr(equals + 1 + doubled)});
  }
}

bool Field_Selector::matches(const Value& object) const {
  return std::all_of(requirements_.begin(), requirements_.end(), [&](const Requirement& requirement) {
    return (text_at(object, requirement.pointer) == requirement.value) == requirement.equal;
  });
}

}  // namespace kube_sim
