#include "support/kube_sim/test/body_compare.h"

#include <regex>

#include "json_spirit/dump.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::JSON_Dump;
using json_spirit::Object;
using json_spirit::Value;

namespace {

/// Members whose value another run gives anew.
bool is_volatile(const std::string& key) {
  static const std::set<std::string> keys{"uid",
                                          "resourceVersion",
                                          "continue",
                                          "creationTimestamp",
                                          "deletionTimestamp",
                                          "controller-uid",
                                          "batch.kubernetes.io/controller-uid",
                                          "ca.crt",
                                          "lastPhaseTransitionTime",
                                          "gitCommit",
                                          "buildDate",
                                          "goVersion"};
  return keys.count(key);
}

/// What the server fills in and nobody here reads.
bool may_be_absent(const std::string& key) {
  static const std::set<std::string> keys{"managedFields",
                                          "tolerations",                // of pods, against nodes that are not ready
                                          "kubernetes.io/description",  // of the config map kube-root-ca.crt
                                          "observedGeneration",         // of conditions
                                          "lastProbeTime",
                                          "lastTransitionTime",
                                          "lastHeartbeatTime",
                                          "lastState",  // null or empty
                                          "daemonEndpoints",
                                          "nodeInfo",
                                          "podCIDR",
                                          "podCIDRs",
                                          "node.alpha.kubernetes.io/ttl",  // of nodes
                                          "serverAddressByClientCIDRs",
                                          "storageVersionHash",
                                          "categories"};
  return keys.count(key);
}

/// Texts with what changes from run to run taken out.
std::string settled(std::string text) {
  static const std::regex revision("current: [0-9]+$|\\([0-9]+\\)$"), generated("^(kube-api-access-|gen-)[a-z0-9]{5}$");
  text = std::regex_replace(text, revision, "#");
  text = std::regex_replace(text, generated, "$1#");
  // Refused changes are shown as a difference of two dumps of the server's own data types.
  const std::size_t difference = text.find("\n@@");
  if (difference != std::string::npos) text.erase(difference + 1);
  if (text.size() > 2 && text.compare(text.size() - 2, 2, "\n]") == 0) text.pop_back();
  return text;
}

class Comparison {
 public:
  Comparison(const std::set<std::string>& without, Renewed_Values& renewed) : without_(without), renewed_(renewed) {}

  void compare(const Value& recorded, const Value& ours, const std::string& path, const std::string& key) {
    if (recorded.type() == json_spirit::obj_type && ours.type() == json_spirit::obj_type)
      return compare_objects(recorded.get_obj(), ours.get_obj(), path);
    if (recorded.type() == json_spirit::array_type && ours.type() == json_spirit::array_type)
      return compare_arrays(recorded.get_array(), ours.get_array(), path);
    if (recorded.compare_only_value(ours)) return;
    if (recorded.type() == json_spirit::str_type && ours.type() == json_spirit::str_type) {
      if (is_volatile(key) && !recorded.get_str().empty() && !ours.get_str().empty()) {
        renewed_[recorded.get_str()] = ours.get_str();
        return;
      }
      if (settled(recorded.get_str()) == settled(ours.get_str())) return;
    }
    differences.push_back(path + ": recorded " + text(recorded) + ", ours " + text(ours));
  }

  std::vector<std::string> differences;

 private:
  static std::string text(const Value& value) { return JSON_Dump(value, false).str().substr(0, 600); }

  void compare_objects(const Object& recorded, const Object& ours, const std::string& path) {
    for (const auto& [key, value] : recorded) {
      if (path.empty() && without_.count(key)) continue;
      const auto own = ours.find(key);
      if (own != ours.end())
        compare(value, own->second, path + "/" + key, key);
      else if (!may_be_absent(key) && !only_ignored(value))
        differences.push_back(path + "/" + key + ": absent, recorded " + text(value));
    }
    for (const auto& [key, value] : ours)
      if (!recorded.count(key)) differences.push_back(path + "/" + key + ": not recorded, ours " + text(value));
  }

  /// An object in which nothing stands but what may be absent.
  static bool only_ignored(const Value& value) {
    if (value.type() != json_spirit::obj_type || value.get_obj().empty()) return false;
    for (const auto& member : value.get_obj())
      if (!may_be_absent(member.first)) return false;
    return true;
  }

  void compare_arrays(const Array& recorded, const Array& ours, const std::string& path) {
    if (recorded.size() != ours.size()) {
      differences.push_back(path + ": recorded " + std::to_string(recorded.size()) + " elements, ours " +
                            std::to_string(ours.size()) + ": " + text(ours));
      return;
    }
    for (std::size_t i = 0; i < recorded.size(); ++i) compare(recorded[i], ours[i], path + "/" + std::to_string(i), "");
  }

  const std::set<std::string>& without_;
  Renewed_Values& renewed_;
};

/// The elements of @a list that @a wanted names too, in the order of @a wanted.
Array named_as_in(const Array& list, const Array& wanted, const char* member) {
  Array found;
  for (const auto& one : wanted)
    for (const auto& candidate : list)
      if (json_spirit::object_get_value(candidate.get_obj(), member)
              ->compare_only_value(*json_spirit::object_get_value(one.get_obj(), member)))
        found.push_back(candidate);
  return found;
}

/// The real server has many more groups and kinds: of its lists of them, those that we have too.
Value narrowed(const Value& recorded, const Value& ours) {
  if (recorded.type() != json_spirit::obj_type || ours.type() != json_spirit::obj_type) return recorded;
  Value narrow = recorded;
  for (const char* list : {"groups", "resources"}) {
    Array* all = json_spirit::object_get_array(narrow.get_obj(), list);
    const Array* own = json_spirit::object_get_array(ours.get_obj(), list);
    if (all && own) *all = named_as_in(*all, *own, "name");
  }
  return narrow;
}

}  // namespace

std::vector<std::string> compare_bodies(const Value& recorded, const Value& ours, const std::set<std::string>& without,
                                        Renewed_Values& renewed) {
  Comparison comparison(without, renewed);
  comparison.compare(narrowed(recorded, ours), ours, "", "");
  return comparison.differences;
}

void renew(Value& document, const Renewed_Values& renewed) {
  if (document.type() == json_spirit::obj_type) {
    for (auto& [key, member] : document.get_obj()) {
      const bool text = member.type() == json_spirit::str_type && is_volatile(key);
      const auto found = text ? renewed.find(member.get_str()) : renewed.end();
      if (found != renewed.end())
        member = found->second;
      else
        renew(member, renewed);
    }
  } else if (document.type() == json_spirit::array_type) {
    for (auto& element : document.get_array()) renew(element, renewed);
  }
}

}  // namespace kube_sim
