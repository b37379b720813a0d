#include "support/kube_sim/patch.h"

#include <algorithm>
#include <map>

#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "json_spirit/json_pointer.h"
#include "support/kube_sim/status_document.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::JSON_Pointer;
using json_spirit::Object;
using json_spirit::Value;

void merge_patch(Value& target, const Value& patch) {
  if (patch.type() != json_spirit::obj_type) {
    target = patch;
    return;
  }
  Object& object = target.to_object();
  for (const auto& [key, value] : patch.get_obj()) {
    if (value.is_null())
      object.erase(key);
    else
      merge_patch(object[key], value);
  }
}

namespace {

/// The member that tells elements of the list @a member apart; empty when the list is replaced as a whole.
std::string merge_key(const std::string& member) {
  static const std::map<std::string, std::string> keys{{"containers", "name"},
                                                       {"initContainers", "name"},
                                                       {"ephemeralContainers", "name"},
                                                       {"volumes", "name"},
                                                       {"volumeMounts", "mountPath"},
                                                       {"volumeDevices", "devicePath"},
                                                       {"ports", "containerPort"},
                                                       {"env", "name"},
                                                       {"imagePullSecrets", "name"},
                                                       {"secrets", "name"},
                                                       {"hostAliases", "ip"},
                                                       {"podIPs", "ip"},
                                                       {"conditions", "type"},
                                                       {"addresses", "type"},
                                                       {"taints", "key"},
                                                       {"topologySpreadConstraints", "topologyKey"},
                                                       {"ownerReferences", "uid"}};
  const auto found = keys.find(member);
  return found == keys.end() ? std::string() : found->second;
}

bool directive(const std::string& key) {
  return !key.empty() && key.front() == '$';
}

bool is_delete(const Object& patch) {
  const auto* what = json_spirit::object_get_str(patch, "$patch");
  return what && *what == "delete";
}

bool is_replace(const Object& patch) {
  const auto* what = json_spirit::object_get_str(patch, "$patch");
  return what && *what == "replace";
}

/// What stays of an object in a patch when it is stored: nothing with "$" and no nulls.
Value plain(const Value& patch) {
  if (patch.type() != json_spirit::obj_type) return patch;
  Object object;
  for (const auto& [key, value] : patch.get_obj())
    if (!directive(key) && !value.is_null()) object[key] = plain(value);
  return object;
}

Array::iterator find_element(Array& list, const std::string& key, const Value& value) {
  return std::find_if(list.begin(), list.end(), [&](const Value& element) {
    if (element.type() != json_spirit::obj_type) return false;
    const Value* own = json_spirit::object_get_value(element.get_obj(), key);
    return own && own->compare_only_value(value);
  });
}

void merge_list(Array& list, const Array& patch, const std::string& key) {
  for (const Object& element : patch | json_spirit::get_obj)
    if (is_replace(element)) list.clear();
  for (const Object& element : patch | json_spirit::get_obj) {
    const Value* id = json_spirit::object_get_value(element, key);
    if (!id) continue;
    const auto found = find_element(list, key, *id);
    if (is_delete(element)) {
      if (found != list.end()) list.erase(found);
    } else if (found == list.end()) {
      list.push_back(plain(element));
    } else {
      strategic_merge_patch(found->get_obj(), element);
    }
  }
}

void add_missing(Array& list, const Array& patch) {
  for (const auto& element : patch)
    if (std::find(list.begin(), list.end(), element) == list.end()) list.push_back(element);
}

void delete_primitives(Object& target, const std::string& member, const Array& gone) {
  Array* list = json_spirit::object_get_array(target, member);
  if (list)
    std::erase_if(*list, [&](const Value& one) { return std::find(gone.begin(), gone.end(), one) != gone.end(); });
}

void retain(Object& target, const Array& keys) {
  std::erase_if(target, [&](const auto& member) {
    return std::find(keys.begin(), keys.end(), Value(member.first)) == keys.end();
  });
}

void follow_directive(Object& target, const std::string& key, const Value& value) {
  static const std::string deletion = "$deleteFromPrimitiveList/";
  if (value.type() != json_spirit::array_type) return;
  if (key == "$retainKeys") retain(target, value.get_array());
  if (key.compare(0, deletion.size(), deletion) == 0)
    delete_primitives(target, key.substr(deletion.size()), value.get_array());
}

void merge_member(Object& target, const std::string& key, const Value& value) {
  if (value.type() == json_spirit::obj_type) {
    if (is_delete(value.get_obj()))
      target.erase(key);
    else
      strategic_merge_patch(target[key].to_object(), value.get_obj());
  } else if (value.type() == json_spirit::array_type && !merge_key(key).empty()) {
    merge_list(target[key].to_array(), value.get_array(), merge_key(key));
  } else if (value.type() == json_spirit::array_type && key == "finalizers") {
    add_missing(target[key].to_array(), value.get_array());
  } else {
    target[key] = value;
  }
}

}  // namespace

void strategic_merge_patch(Object& target, const Object& patch) {
  if (is_replace(patch)) {
    target = plain(patch).get_obj();
    return;
  }
  for (const auto& [key, value] : patch)
    if (directive(key)) follow_directive(target, key, value);
  for (const auto& [key, value] : patch) {
    if (directive(key)) continue;
    if (value.is_null())
      target.erase(key);
    else
      merge_member(target, key, value);
  }
}

namespace {

[[noreturn]] void fail() {
  throw Refusal{failure(422, "Invalid", "the server rejected our request due to an error in our request", Object())};
}

std::string member(const Object& operation, const char* name) {
  std::string text;
  json_spirit::object_get(operation, name, text);
  return text;
}

Value take_at(Value& target, const std::string& path) {
  const JSON_Pointer pointer(path.c_str(), false, false);
  Value* found = nullptr;
  if (!pointer.get(target, found)) fail();
  return *found;
}

std::string unescaped(std::string token) {
  for (std::size_t at; (at = token.find("~1")) != std::string::npos;) token.replace(at, 2, "/");
  for (std::size_t at; (at = token.find("~0")) != std::string::npos;) token.replace(at, 2, "~");
  return token;
}

void remove_at(Value& target, const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) fail();
  const std::string parent_path = path.substr(0, slash), token = path.substr(slash + 1);
  const JSON_Pointer pointer(parent_path.c_str(), false, false);
  Value* parent = nullptr;
  if (!pointer.get(target, parent)) fail();
  if (parent->type() == json_spirit::obj_type) {
    if (!parent->get_obj().erase(unescaped(token))) fail();
  } else if (parent->type() == json_spirit::array_type) {
    Array& list = parent->get_array();
    const std::size_t index = std::strtoul(token.c_str(), nullptr, 10);
    if (token.find_first_not_of("0123456789") != std::string::npos || index >= list.size()) fail();
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(index));
  } else {
    fail();
  }
}

/// "add" puts an element before the one at its index, where set() would replace that.
void add_at(Value& target, const std::string& path, Value value) {
  const std::size_t slash = path.rfind('/');
  if (slash != std::string::npos) {
    const std::string parent_path = path.substr(0, slash), token = path.substr(slash + 1);
    Array* list = nullptr;
    if (JSON_Pointer(parent_path.c_str(), false, false).get(target, list) && token != "-") {
      const std::size_t index = std::strtoul(token.c_str(), nullptr, 10);
      if (token.empty() || token.find_first_not_of("0123456789") != std::string::npos || index > list->size()) fail();
      list->insert(list->begin() + static_cast<std::ptrdiff_t>(index), std::move(value));
      return;
    }
  }
  if (!JSON_Pointer(path.c_str(), false, false).set(target, std::move(value))) fail();
}

void apply(Value& target, const Object& operation) {
  const std::string op = member(operation, "op"), path = member(operation, "path"), from = member(operation, "from");
  const Value* given = json_spirit::object_get_value(operation, "value");
  const Value value = given ? *given : Value();
  if (op == "add") {
    add_at(target, path, value);
  } else if (op == "remove") {
    remove_at(target, path);
  } else if (op == "replace") {
    if (!JSON_Pointer(path.c_str(), false, false).set(target, value)) fail();
  } else if (op == "test") {
    if (!take_at(target, path).compare_only_value(value)) fail();
  } else if (op == "copy") {
    add_at(target, path, take_at(target, from));
  } else if (op == "move") {
    Value moved = take_at(target, from);
    remove_at(target, from);
    add_at(target, path, std::move(moved));
  } else {
    fail();
  }
}

}  // namespace

void json_patch(Value& target, const Array& operations) {
  for (const auto& operation : operations) {
    if (operation.type() != json_spirit::obj_type) fail();
    apply(target, operation.get_obj());
  }
}

}  // namespace kube_sim
