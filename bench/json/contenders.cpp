#include "contenders.h"

#include <boost/json.hpp>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "simdjson_reader.h"

namespace {

class Own_Document : public Document {
 public:
  std::size_t extract() const override {
    using json_spirit::String_type;
    std::size_t sum = 0;
    const json_spirit::Array* items = nullptr;
    json_spirit::pextract(value_)("/items", items);
    for (const json_spirit::Object& pod : *items | json_spirit::get_obj) {
      const String_type *name = nullptr, *space = nullptr, *node = nullptr, *phase = nullptr;
      json_spirit::pextract(pod)("/status/phase", phase)("/spec/nodeName", node)
          .chroot("/metadata")("/name", name)("/namespace", space);
      sum += name->size() + space->size() + node->size() + phase->size();
    }
    return sum;
  }
  std::string dump() const override { return json_spirit::JSON_Dump(value_, false).str(); }

  json_spirit::Value value_;
};

using Reader = bool(const std::string&, json_spirit::Value&);

bool own_reader(const std::string& text, json_spirit::Value& value) {
  return json_spirit::loads_json(std::string_view(text), value);
}

template <Reader* read>
std::unique_ptr<Document> parse_own(const std::string& text) {
  auto document = std::make_unique<Own_Document>();
  if (!read(text, document->value_)) abort();
  return document;
}

class Boost_Document : public Document {
 public:
  explicit Boost_Document(const std::string& text) : value_(boost::json::parse(text)) {}

  std::size_t extract() const override {
    std::size_t sum = 0;
    for (const auto& pod : value_.at_pointer("/items").as_array())
      for (const char* path : {"/metadata/name", "/metadata/namespace", "/spec/nodeName", "/status/phase"})
        sum += pod.at_pointer(path).as_string().size();
    return sum;
  }
  std::string dump() const override { return boost::json::serialize(value_); }

 private:
  boost::json::value value_;
};

class Nlohmann_Document : public Document {
 public:
  explicit Nlohmann_Document(const std::string& text) : value_(nlohmann::json::parse(text)) {}

  std::size_t extract() const override {
    static const nlohmann::json::json_pointer paths[] = {
        nlohmann::json::json_pointer("/metadata/name"), nlohmann::json::json_pointer("/metadata/namespace"),
        nlohmann::json::json_pointer("/spec/nodeName"), nlohmann::json::json_pointer("/status/phase")};
    std::size_t sum = 0;
    for (const auto& pod : value_.at("items"))
      for (const auto& path : paths) sum += pod.at(path).get_ref<const std::string&>().size();
    return sum;
  }
  std::string dump() const override { return value_.dump(); }

 private:
  nlohmann::json value_;
};

template <typename T>
std::unique_ptr<Document> parse(const std::string& text) {
  return std::make_unique<T>(text);
}

}  // namespace

const std::vector<Contender>& contenders() {
  static const std::vector<Contender> all = {
      {"json_spirit", parse_own<own_reader>},
      {"json_spirit_simdjson_dom", parse_own<read_by_simdjson_dom>},
      {"json_spirit_simdjson_ondemand", parse_own<read_by_simdjson_ondemand>},
      {"boost_json_dom", parse<Boost_Document>},
      {"nlohmann_json", parse<Nlohmann_Document>},
  };
  return all;
}
