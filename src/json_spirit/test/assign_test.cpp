#include "json_spirit/assign.h"

#include <gtest/gtest.h>

#include "json_spirit/dump.h"

namespace json_spirit {
namespace {

String_type text_of(const Value& value) {
  return JSON_Dump(value, false).str();
}

TEST(Insert, StoresEachKindOfArgument) {
  Object object;
  const String_type text = "t";
  const String_type key = "key";
  Object inner{{"i", 1}};
  insert(object)("chars", "c")("string", text)(key, String_type("moved"))("int", -1)("bool", true)("long", 5ul)(
      "object", inner)("moved", std::move(inner))("array", Array{1})("value", Value())("real", 1.5);
  EXPECT_EQ(
      R"({"array":[1],"bool":true,"chars":"c","int":-1,"key":"moved","long":5,"moved":{"i":1},"object":{"i":1},"real":1.5,"string":"t","value":null})",
      text_of(object));
  EXPECT_TRUE(object["long"].is_uint64());
}

TEST(Insert, ReplacesTheValueOfAKey) {
  Object object{{"k", "old"}};
  insert(object)("k", "new");
  EXPECT_EQ("new", object["k"].get_str());
}

TEST(Insert, IsChainedOnANamedInserterToo) {
  Object object{{"k", 1}};
  Object_Inserter inserter = insert(object);
  inserter("k", 2)(String_type("l"), "x");
  inserter("m", true);
  EXPECT_EQ(R"({"k":2,"l":"x","m":true})", text_of(object));
  EXPECT_EQ(&object, &inserter.obj);
}

TEST(Insert, AMapLeavesKeysThatAreThere) {
  Object object{{"k", "old"}};
  insert(object)(std::map<std::string, std::string>{{"k", "new"}, {"l", "added"}})("m", 1);
  EXPECT_EQ(R"({"k":"old","l":"added","m":1})", text_of(object));
  Object_Inserter inserter = insert(object);
  inserter(std::map<std::string, std::string>{{"m", "new"}, {"n", "added"}})("o", 1);
  EXPECT_EQ(R"({"k":"old","l":"added","m":1,"n":"added","o":1})", text_of(object));
}

TEST(Insert, ConvertsToTheBoundObject) {
  Object object;
  Object& reference = insert(object)("a", 1);
  Object_Inserter inserter = insert(object);
  const Object_Inserter& const_inserter = inserter;
  const Object& const_reference = const_inserter;
  Object* pointer = inserter;
  const Object* const_pointer = const_inserter;
  EXPECT_EQ(&object, &reference);
  EXPECT_EQ(&object, &const_reference);
  EXPECT_EQ(&object, pointer);
  EXPECT_EQ(&object, const_pointer);
}

TEST(Insert, LeavesOutWhatIsEmpty) {
  Object object;
  insert(object)("a", "", skip_empty)("b", Object(), skip_empty)("c", Array(), skip_empty)("d", Value(), skip_empty)(
      "e", secure_string(), skip_empty)("f", "x", skip_empty)("g", 0, skip_empty)("h", false, skip_empty);
  EXPECT_EQ(R"({"f":"x","g":0,"h":false})", text_of(object));
}

TEST(Insert, LeavesOutWhatIsNull) {
  Object object;
  insert(object)("a", Value(), skip_null)("b", "", skip_null);
  Object_Inserter inserter = insert(object);
  inserter("c", Value(), skip_null)("d", 1, skip_null);
  EXPECT_EQ(R"({"b":"","d":1})", text_of(object));
}

TEST(Maker, MakesAWholeValue) {
  const Value value = Object_Maker()("a", 1)("b", Object_Maker()("c", "x"))("d", Array{Object_Maker()("e", true)});
  EXPECT_EQ(R"({"a":1,"b":{"c":"x"},"d":[{"e":true}]})", text_of(value));
}

TEST(Maker, WithoutMembersIsAnEmptyObject) {
  EXPECT_EQ("{}", text_of(Object_Maker()));
}

TEST(Maker, IsAValueAndAnInserterInThisOrder) {
  static_assert(std::is_base_of_v<Value, Object_Maker>);
  static_assert(std::is_base_of_v<Object_Inserter, Object_Maker>);
  Object_Maker maker;
  EXPECT_EQ(static_cast<void*>(&maker), static_cast<void*>(static_cast<Value*>(&maker)));
  EXPECT_EQ(&maker.get_obj(), &maker.obj);
}

TEST(Maker, CanBeNamedAndGoOn) {
  Object_Maker maker;
  maker("a", 1);
  maker("b", 2)(std::map<std::string, std::string>{{"b", "no"}, {"c", "yes"}});
  EXPECT_EQ(R"({"a":1,"b":2,"c":"yes"})", text_of(maker));
}

TEST(Maker, ACopyHasItsOwnObject) {
  Object_Maker maker;
  maker("a", 1);
  Object_Maker copy(maker);
  copy("b", 2);
  Object_Maker moved(std::move(copy));
  moved("c", 3);
  EXPECT_EQ(R"({"a":1})", text_of(maker));
  EXPECT_EQ(R"({"a":1,"b":2,"c":3})", text_of(moved));
}

TEST(Maker, IsMovedIntoItsPlace) {
  String_type text(100, 'x');
  const char* at = text.data();
  const Value value = Object_Maker()("text", std::move(text));
  EXPECT_EQ(at, value.get_obj().at("text").get_str().data());
  Array array;
  array << Object_Maker()("a", 1);
  Object object;
  insert(object)("made", Object_Maker()("b", 2));
  EXPECT_EQ(R"([{"a":1}])", text_of(array));
  EXPECT_EQ(R"({"made":{"b":2}})", text_of(object));
}

TEST(Assign, ANewObjectReplacesTheValue) {
  Value value("old");
  to_new_object(value)["a"] = 1;
  EXPECT_EQ(R"({"a":1})", text_of(value));
}

TEST(Assign, ANewObjectIsAppended) {
  Array array{1};
  append_new_object(array)["a"] = 2;
  insert(append_new_object(array))("b", 3);
  EXPECT_EQ(R"([1,{"a":2},{"b":3}])", text_of(array));
}

TEST(Assign, ElementsAreAppendedInAChain) {
  Array array;
  Array& same = array << 1 << "two" << Value() << Array{3};
  EXPECT_EQ(&array, &same);
  EXPECT_EQ(R"([1,"two",null,[3]])", text_of(array));
}

}  // namespace
}  // namespace json_spirit
