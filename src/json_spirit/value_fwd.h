#pragma once

#include <map>
#include <string>
#include <vector>

namespace json_spirit {

class Value;

typedef std::string String_type;
/// Members in ascending byte order of their keys; a key occurs once. References to members stay valid until the member
/// is erased.
typedef std::map<String_type, Value> Object;
typedef std::vector<Value> Array;

}  // namespace json_spirit
