#pragma once

#include <set>
#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "support/kube_sim/resource_table.h"

namespace kube_sim {

/// labelSelector of a request: `a=1,b!=2,c in (x,y),d notin (z),e,!f`.
class Label_Selector {
 public:
  Label_Selector() = default;
  /// Throws a Refusal (400) when it can't be read.
  explicit Label_Selector(const std::string& text);

  bool empty() const { return requirements_.empty(); }
  /// @a object is a whole document; its labels are looked at.
  bool matches(const json_spirit::Value& object) const;

 private:
  enum class Operation { in, not_in, exists, absent };
  struct Requirement {
    std::string key;
    Operation operation;
    std::set<std::string> values;
  };

  static bool holds(const Requirement& requirement, const std::string* value);

  std::vector<Requirement> requirements_;
  friend class Label_Selector_Parser;
};

/// fieldSelector of a request: `metadata.name=x,status.phase!=Running`.
class Field_Selector {
 public:
  Field_Selector() = default;
  /// Throws a Refusal (400) when it can't be read, or names a field that objects of this kind can't be selected by.
  Field_Selector(const std::string& text, const Resource& resource);

  bool empty() const { return requirements_.empty(); }
  bool matches(const json_spirit::Value& object) const;

 private:
  struct Requirement {
    std::string pointer;
    bool equal;
    std::string value;
  };

  std::vector<Requirement> requirements_;
};

}  // namespace kube_sim
