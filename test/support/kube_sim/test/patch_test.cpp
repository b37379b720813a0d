#include "support/kube_sim/patch.h"

#include <gtest/gtest.h>

#include "support/kube_sim/status_document.h"

namespace kube_sim {
namespace {

using json_spirit::Value;

Value document(const std::string& text) {
  Value value;
  EXPECT_TRUE(json_spirit::loads_json(std::string_view(text), value)) << text;
  return value;
}

Value merged(const char* target, const char* patch) {
  Value value = document(target);
  merge_patch(value, document(patch));
  return value;
}

Value strategic(const char* target, const char* patch) {
  Value value = document(target);
  strategic_merge_patch(value.get_obj(), document(patch).get_obj());
  return value;
}

Value operated(const char* target, const std::string& operations) {
  Value value = document(target);
  json_patch(value, document("[" + operations + "]").get_array());
  return value;
}

TEST(MergePatch, AddsChangesAndRemovesMembers) {
  EXPECT_EQ(merged(R"({"a":{"b":1,"c":2},"d":3})", R"({"a":{"b":null,"e":4},"d":5})"),
            document(R"({"a":{"c":2,"e":4},"d":5})"));
}

TEST(MergePatch, ReplacesLists) {
  EXPECT_EQ(merged(R"({"a":[1,2]})", R"({"a":[3]})"), document(R"({"a":[3]})"));
}

TEST(MergePatch, LeavesNoNullsInWhatItMakes) {
  EXPECT_EQ(merged("{}", R"({"a":{"b":null,"c":1}})"), document(R"({"a":{"c":1}})"));
}

TEST(StrategicMergePatch, MergesElementsByTheirKey) {
  EXPECT_EQ(strategic(R"({"containers":[{"name":"a","image":"1"},{"name":"b","image":"1"}]})",
                      R"({"containers":[{"name":"b","image":"2"},{"name":"c","image":"3"}]})"),
            document(R"({"containers":[{"name":"a","image":"1"},{"name":"b","image":"2"},{"name":"c","image":"3"}]})"));
}

TEST(StrategicMergePatch, RemovesAnElement) {
  EXPECT_EQ(strategic(R"({"volumes":[{"name":"a"},{"name":"b"}]})", R"({"volumes":[{"name":"a","$patch":"delete"}]})"),
            document(R"({"volumes":[{"name":"b"}]})"));
}

TEST(StrategicMergePatch, MergesPortsByTheirNumber) {
  EXPECT_EQ(strategic(R"({"ports":[{"containerPort":80}]})", R"({"ports":[{"containerPort":80,"name":"http"}]})"),
            document(R"({"ports":[{"containerPort":80,"name":"http"}]})"));
}

TEST(StrategicMergePatch, ReplacesListsWithoutAKey) {
  EXPECT_EQ(strategic(R"({"accessModes":["a"]})", R"({"accessModes":["b"]})"), document(R"({"accessModes":["b"]})"));
}

TEST(StrategicMergePatch, AddsToFinalizersAndTakesFromThem) {
  EXPECT_EQ(strategic(R"({"finalizers":["a","b"]})", R"({"finalizers":["b","c"]})"),
            document(R"({"finalizers":["a","b","c"]})"));
  EXPECT_EQ(strategic(R"({"finalizers":["a","b"]})", R"({"$deleteFromPrimitiveList/finalizers":["a"]})"),
            document(R"({"finalizers":["b"]})"));
}

TEST(StrategicMergePatch, KeepsOnlyTheKeysToRetain) {
  EXPECT_EQ(strategic(R"({"strategy":{"type":"a","rollingUpdate":{}}})",
                      R"({"strategy":{"$retainKeys":["type"],"type":"b"}})"),
            document(R"({"strategy":{"type":"b"}})"));
}

TEST(StrategicMergePatch, ReplacesAnObjectOnDemand) {
  EXPECT_EQ(strategic(R"({"a":{"b":1}})", R"({"a":{"$patch":"replace","c":2}})"), document(R"({"a":{"c":2}})"));
}

TEST(JsonPatch, Operates) {
  EXPECT_EQ(operated(R"({"a":1})", R"({"op":"add","path":"/b","value":2})"), document(R"({"a":1,"b":2})"));
  EXPECT_EQ(operated(R"({"a":1})", R"({"op":"remove","path":"/a"})"), document("{}"));
  EXPECT_EQ(operated(R"({"a":1})", R"({"op":"replace","path":"/a","value":2})"), document(R"({"a":2})"));
  EXPECT_EQ(operated(R"({"a":1})", R"({"op":"copy","from":"/a","path":"/b"})"), document(R"({"a":1,"b":1})"));
  EXPECT_EQ(operated(R"({"a":1})", R"({"op":"move","from":"/a","path":"/b"})"), document(R"({"b":1})"));
  EXPECT_EQ(operated(R"({"a":1})", R"({"op":"test","path":"/a","value":1})"), document(R"({"a":1})"));
}

TEST(JsonPatch, InsertsIntoLists) {
  EXPECT_EQ(operated(R"({"a":[1,3]})", R"({"op":"add","path":"/a/1","value":2})"), document(R"({"a":[1,2,3]})"));
  EXPECT_EQ(operated(R"({"a":[1]})", R"({"op":"add","path":"/a/-","value":2})"), document(R"({"a":[1,2]})"));
  EXPECT_EQ(operated(R"({"a":[1,2]})", R"({"op":"remove","path":"/a/0"})"), document(R"({"a":[2]})"));
}

TEST(JsonPatch, ReadsEscapedNames) {
  EXPECT_EQ(operated(R"({"a/b":1,"c~d":2})", R"({"op":"remove","path":"/a~1b"},{"op":"remove","path":"/c~0d"})"),
            document("{}"));
}

TEST(JsonPatch, RefusesWhatDoesNotApply) {
  for (const char* operation :
       {R"({"op":"remove","path":"/b"})", R"({"op":"test","path":"/a","value":2})", R"({"op":"frob","path":"/a"})",
        R"({"op":"add","path":"/l/7","value":1})", R"({"op":"copy","from":"/b","path":"/c"})", "7"})
    EXPECT_THROW(operated(R"({"a":1,"l":[]})", operation), Refusal) << operation;
}

}  // namespace
}  // namespace kube_sim
