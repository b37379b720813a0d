#include "support/recorded.h"

#include <gtest/gtest.h>

#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"

using json_spirit::Object;
using json_spirit::Value;

namespace test_support {

Step recorded(const std::string& group, const std::string& name) {
  const std::string path = TEST_DATA_DIR "/kube-api/" + group + ".json";
  Value file;
  if (!json_spirit::load_json(path.c_str(), file, json_spirit::LOAD_STRICT)) {
    ADD_FAILURE() << "cannot read " << path;
    return {};
  }
  for (const Object& exchange : file.get_array() | json_spirit::get_obj) {
    if (json_spirit::object_get_str_or_throw(exchange, "name") != name) continue;
    std::string method, url, content_type;
    int status = 0;
    const Value* reply = nullptr;
    pextract(exchange)("/request/method", method)("/request/path", url)("/response/status", status)("/response/body",
                                                                                                    reply);
    if (method == "PATCH") pextract(exchange)("/request/headers/content-type", content_type);
    return {.request = method + " " + url,
            .status = status,
            .reply = reply ? json_spirit::JSON_Dump(*reply, false).str() : "",
            .content_type = content_type};
  }
  ADD_FAILURE() << "no exchange '" << name << "' in " << path;
  return {};
}

}  // namespace test_support
