#pragma once

#include <string>

#include "json_spirit/extract.h"
#include "json_spirit/json_spirit_value.h"
#include "support/kube_sim/cluster.h"

namespace kube_sim {

/// Sends a request to @a cluster as the user who may do all. @a body is JSON text; @a type its media type.
inline Answer call(Cluster& cluster, const std::string& method, const std::string& target, const std::string& body = {},
                   const std::string& type = {}) {
  Request request;
  request.method = method;
  set_target(request, target);
  request.body = body;
  request.headers["authorization"] = "Bearer " + Cluster_Options().token;
  if (!type.empty()) request.headers["content-type"] = type;
  return cluster.answer(request);
}

/// The answer's body; null when it is no JSON.
inline json_spirit::Value json_of(const Answer& answer) {
  json_spirit::Value value;
  json_spirit::loads_json(std::string_view(answer.body), value);
  return value;
}

/// A text in the answer's body, empty when it is not there.
inline std::string text_at(const Answer& answer, const char* pointer) {
  std::string text;
  json_spirit::pextract(json_of(answer))(pointer, text);
  return text;
}

/// A list in the answer's body; none has no elements.
inline std::size_t count_at(const Answer& answer, const char* pointer) {
  const json_spirit::Value document = json_of(answer);
  const json_spirit::Array* list = nullptr;
  json_spirit::pextract(document)(pointer, list);
  return list ? list->size() : 0;
}

inline std::string config_map_text(const std::string& name, const std::string& labels = "{}") {
  return R"({"kind":"ConfigMap","apiVersion":"v1","metadata":{"name":")" + name + R"(","labels":)" + labels +
         R"(},"data":{"key":"value"}})";
}

inline constexpr char config_maps[] = "/api/v1/namespaces/default/configmaps";

}  // namespace kube_sim
