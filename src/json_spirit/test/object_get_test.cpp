#include "json_spirit/json_spirit_helper.h"

#include <gtest/gtest.h>

namespace json_spirit {
namespace {

class Object_Get : public testing::Test {
 protected:
  Object object_{{"text", "x"},
                 {"flag", true},
                 {"number", 65537},
                 {"real", 1.5},
                 {"object", Object()},
                 {"array", Array()},
                 {"secret", secure_string("k")},
                 {"null", Value()},
                 {"big", std::uint64_t{0xFFFF'FFFF'0000'0005}},
                 {"negative", -2}};
  const Object& read_ = object_;
};

TEST_F(Object_Get, ReadsAMemberOfTheRightKind) {
  String_type text;
  bool flag = false;
  int number = 0;
  EXPECT_TRUE(object_get(object_, "text", text));
  EXPECT_TRUE(object_get(object_, "flag", flag));
  EXPECT_TRUE(object_get(object_, "number", number));
  EXPECT_EQ("x", text);
  EXPECT_TRUE(flag);
  EXPECT_EQ(65537, number);
}

template <typename T>
void expect_untouched(const Object& object, const String_type& key, T value) {
  const T before = value;
  EXPECT_FALSE(object_get(object, key, value)) << key;
  EXPECT_EQ(before, value) << key;
}

TEST_F(Object_Get, AMissLeavesTheDestinationAlone) {
  for (const char* key : {"absent", "object", "array", "null", "secret", "real"}) {
    expect_untouched<String_type>(object_, key, "before");
    expect_untouched<bool>(object_, key, true);
    expect_untouched<int>(object_, key, 11);
    expect_untouched<unsigned int>(object_, key, 11);
    expect_untouched<long>(object_, key, 11);
    expect_untouched<unsigned long>(object_, key, 11);
    expect_untouched<unsigned short>(object_, key, 11);
  }
  expect_untouched<bool>(object_, "number", false);
  expect_untouched<int>(object_, "flag", 11);
  expect_untouched<String_type>(object_, "number", "before");
}

TEST_F(Object_Get, IntegersAreReadByTheirLowBits) {
  unsigned short small = 0;
  int number = 0;
  unsigned int natural = 0;
  long wide = 0;
  unsigned long widest = 0;
  EXPECT_TRUE(object_get(object_, "number", small));
  EXPECT_EQ(1, small);
  EXPECT_TRUE(object_get<unsigned short>(object_, "negative", small));
  EXPECT_EQ(65534, small);
  EXPECT_TRUE(object_get(object_, "big", number));
  EXPECT_EQ(5, number);
  EXPECT_TRUE(object_get(object_, "negative", natural));
  EXPECT_EQ(0xFFFF'FFFEu, natural);
  EXPECT_TRUE(object_get(object_, "big", wide));
  EXPECT_EQ(-4294967291L, wide);
  EXPECT_TRUE(object_get(object_, "negative", widest));
  EXPECT_EQ(0xFFFF'FFFF'FFFF'FFFEu, widest);
}

TEST_F(Object_Get, PointersLeadIntoTheObject) {
  EXPECT_EQ(&object_["text"].get_str(), object_get_str(read_, "text"));
  EXPECT_EQ(&object_["object"].get_obj(), object_get_object(read_, "object"));
  EXPECT_EQ(&object_["array"].get_array(), object_get_array(read_, "array"));
  EXPECT_EQ(&object_["null"], object_get_value(object_, "null"));
  object_get_str(object_, "text")->assign("changed");
  (*object_get_object(object_, "object"))["k"] = 1;
  object_get_array(object_, "array")->push_back(1);
  *object_get_value(object_, "null") = 5;
  EXPECT_EQ("changed", read_.at("text").get_str());
  EXPECT_EQ(1u, read_.at("object").get_obj().size());
  EXPECT_EQ(1u, read_.at("array").get_array().size());
  EXPECT_EQ(5, read_.at("null").get_int());
}

TEST_F(Object_Get, PointersAreConstAsTheObjectIs) {
  static_assert(std::is_same_v<const String_type*, decltype(object_get_str(read_, ""))>);
  static_assert(std::is_same_v<String_type*, decltype(object_get_str(object_, ""))>);
  static_assert(std::is_same_v<const Object*, decltype(object_get_object(read_, ""))>);
  static_assert(std::is_same_v<Object*, decltype(object_get_object(object_, ""))>);
  static_assert(std::is_same_v<const Array*, decltype(object_get_array(read_, ""))>);
  static_assert(std::is_same_v<Array*, decltype(object_get_array(object_, ""))>);
}

TEST_F(Object_Get, APointerReadIsNullOnAMiss) {
  for (const char* key : {"absent", "number", "secret"}) {
    EXPECT_EQ(nullptr, object_get_str(read_, key));
    EXPECT_EQ(nullptr, object_get_str(object_, key));
    EXPECT_EQ(nullptr, object_get_object(read_, key));
    EXPECT_EQ(nullptr, object_get_object(object_, key));
    EXPECT_EQ(nullptr, object_get_array(read_, key));
    EXPECT_EQ(nullptr, object_get_array(object_, key));
  }
  EXPECT_EQ(nullptr, object_get_value(object_, "absent"));
}

TEST_F(Object_Get, RequiredReadsGiveTheContent) {
  EXPECT_EQ("x", object_get_str_or_throw(read_, "text"));
  EXPECT_TRUE(object_get_object_or_throw(read_, "object").empty());
  EXPECT_TRUE(object_get_array_or_throw(read_, "array").empty());
  EXPECT_TRUE(object_get_bool_or_throw(read_, "flag"));
  EXPECT_EQ(-2, object_get_int64_or_throw(read_, "negative"));
  EXPECT_EQ(0xFFFF'FFFF'0000'0005u, object_get_uint64_or_throw(read_, "big"));
  object_get_str_or_throw(object_, "text") = "y";
  object_get_object_or_throw(object_, "object")["k"] = 1;
  object_get_array_or_throw(object_, "array").push_back(1);
  EXPECT_EQ("y", object_get_str_or_throw(read_, "text"));
}

TEST_F(Object_Get, RequiredReadsThrowOnAMiss) {
  for (const char* key : {"absent", "real"}) {
    EXPECT_THROW(object_get_str_or_throw(read_, key), std::exception);
    EXPECT_THROW(object_get_str_or_throw(object_, key), std::exception);
    EXPECT_THROW(object_get_object_or_throw(read_, key), std::exception);
    EXPECT_THROW(object_get_object_or_throw(object_, key), std::exception);
    EXPECT_THROW(object_get_array_or_throw(read_, key), std::exception);
    EXPECT_THROW(object_get_array_or_throw(object_, key), std::exception);
    EXPECT_THROW(object_get_bool_or_throw(read_, key), std::exception);
    EXPECT_THROW(object_get_int64_or_throw(read_, key), std::exception);
    EXPECT_THROW(object_get_uint64_or_throw(read_, key), std::exception);
  }
}

std::string fault_of(const Object& object, const String_type& key) {
  try {
    object_get_str_or_throw(object, key);
  } catch (const std::exception& fault) {
    return fault.what();
  }
  return "";
}

TEST_F(Object_Get, TheExceptionNamesTheKeyAndTheKinds) {
  EXPECT_EQ("JSON member 'absent' is missing", fault_of(object_, "absent"));
  EXPECT_EQ("JSON member 'number' is an integer, not a string", fault_of(object_, "number"));
}

TEST_F(Object_Get, OnlyTheObjectsOwnMembersCount) {
  object_["a/b"] = "by key";
  object_["object"].get_obj()["inner"] = "x";
  EXPECT_EQ("by key", *object_get_str(object_, "a/b"));
  EXPECT_EQ(nullptr, object_get_str(object_, "object/inner"));
  EXPECT_EQ(nullptr, object_get_str(object_, "/object/inner"));
}

}  // namespace
}  // namespace json_spirit
