#include "support/kube_sim/test/left_out.h"

#include <algorithm>

#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "support/kube_sim/test/recorded_exchange.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

Left_Out left_out(const std::string& group, const std::string& name) {
  Left_Out result;
  const Value list = recorded_document("left-out.json");
  for (const Object& entry : list.get_array() | json_spirit::get_obj) {
    std::string of_group;
    const Array *names = nullptr, *members = nullptr, *headers = nullptr;
    json_spirit::extract(entry)("group", of_group)("names", names)("not_compared", members)("headers", headers);
    if (of_group != group) continue;
    if (names && std::find(names->begin(), names->end(), Value(name)) == names->end()) continue;
    if (!members && !headers) result.skip = true;
    if (members)
      for (const std::string& member : *members | json_spirit::get_str) result.without.insert(member);
    if (headers)
      for (const std::string& header : *headers | json_spirit::get_str) result.headers.insert(header);
  }
  return result;
}

}  // namespace kube_sim
