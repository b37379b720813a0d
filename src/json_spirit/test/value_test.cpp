#include "json_spirit/json_spirit_value.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <type_traits>

namespace json_spirit {
namespace {

TEST(Value, KindsHaveTheirNumbers) {
  EXPECT_EQ(0, obj_type);
  EXPECT_EQ(1, array_type);
  EXPECT_EQ(2, str_type);
  EXPECT_EQ(3, secure_str_type);
  EXPECT_EQ(4, bool_type);
  EXPECT_EQ(5, int_type);
  EXPECT_EQ(6, real_type);
  EXPECT_EQ(7, null_type);
}

TEST(Value, AlternativesLieInTheirOrder) {
  EXPECT_EQ(0, Value(Object()).data().which());
  EXPECT_EQ(1, Value(Array()).data().which());
  EXPECT_EQ(2, Value("s").data().which());
  EXPECT_EQ(3, Value(secure_string("s")).data().which());
  EXPECT_EQ(4, Value(true).data().which());
  EXPECT_EQ(5, Value(1).data().which());
  EXPECT_EQ(6, Value(1.5).data().which());
  EXPECT_EQ(7, Value().data().which());
  EXPECT_EQ(8, Value(1u).data().which());
}

TEST(Value, ADefaultValueIsNull) {
  EXPECT_EQ(null_type, Value().type());
  EXPECT_TRUE(Value().is_null());
}

TEST(Value, TheNullConstantMakesNull) {
  static_assert(std::is_same_v<std::remove_cv_t<decltype(Value::null)>, Null>);
  const Value value = Value::null;
  EXPECT_TRUE(value.is_null());
}

TEST(Value, AConstCharMakesAStringAndNeverABoolean) {
  const char* text = "true";
  EXPECT_EQ(str_type, Value(text).type());
  EXPECT_EQ("true", Value(text).get_str());
  EXPECT_EQ(str_type, Value("").type());
}

TEST(Value, ANullPointerMakesNull) {
  EXPECT_TRUE(Value(static_cast<const char*>(nullptr)).is_null());
}

TEST(Value, OtherPointersMakeNoValue) {
  static_assert(!std::is_constructible_v<Value, int*>);
  static_assert(!std::is_constructible_v<Value, const void*>);
  static_assert(std::is_constructible_v<Value, char*>);
}

TEST(Value, StringsAreCopiedOrMoved) {
  String_type text(100, 'x');
  const Value copied(text);
  EXPECT_EQ(100u, text.size());
  const char* at = text.data();
  const Value moved(std::move(text));
  EXPECT_EQ(at, moved.get_str().data());
  EXPECT_EQ(copied.get_str(), moved.get_str());
}

TEST(Value, SecretStringsAreAKindOfTheirOwn) {
  const Value value(secure_string("key"));
  EXPECT_EQ(secure_str_type, value.type());
  EXPECT_EQ("key", value.get_secure_str());
  EXPECT_THROW(value.get_str(), Type_Error);
}

TEST(Value, SignedSourcesMakeTheSignedAlternative) {
  for (const Value& value : {Value(-1), Value(-1L), Value(-1LL), Value(std::int64_t{-1})}) {
    EXPECT_EQ(int_type, value.type());
    EXPECT_FALSE(value.is_uint64());
    EXPECT_EQ(-1, value.get_int64());
  }
}

TEST(Value, UnsignedSourcesMakeTheUnsignedAlternative) {
  for (const Value& value : {Value(7u), Value(7UL), Value(7ULL), Value(std::uint64_t{7})}) {
    EXPECT_EQ(int_type, value.type());
    EXPECT_TRUE(value.is_uint64());
    EXPECT_EQ(7u, value.get_uint64());
  }
}

TEST(Value, OnlyTheUnsignedAlternativeIsUint64) {
  EXPECT_FALSE(Value(1.0).is_uint64());
  EXPECT_FALSE(Value().is_uint64());
}

TEST(Value, IntegersAreReadByTheirLowBits) {
  const Value big(std::uint64_t{0x1'0000'0005});
  EXPECT_EQ(5, big.get_int());
  EXPECT_EQ(5u, big.get_uint());
  EXPECT_EQ(0x1'0000'0005, big.get_long());
  EXPECT_EQ(0x1'0000'0005u, big.get_ulong());
  EXPECT_EQ(-1, Value(std::numeric_limits<std::uint64_t>::max()).get_int64());
  EXPECT_EQ(std::numeric_limits<std::uint64_t>::max(), Value(-1).get_uint64());
  EXPECT_EQ(0xFFFF'FFFFu, Value(-1).get_uint());
  EXPECT_EQ(-1, Value(0xFFFF'FFFFu).get_int());
}

TEST(Value, ReferencesLeadIntoTheValue) {
  Value value{Object()};
  value.get_obj()["a"] = 1;
  value.get_obj()["b"] = Array();
  value.get_obj()["b"].get_array().push_back("x");
  value.get_obj()["b"].get_array()[0].get_str() += "y";
  const Value& read = value;
  EXPECT_EQ(1, read.get_obj().at("a").get_int());
  EXPECT_EQ("xy", read.get_obj().at("b").get_array()[0].get_str());
}

TEST(Value, AReferenceToAnEmptyContainerSeesWhatIsAddedLater) {
  Value value{Object()};
  const Object& members = static_cast<const Value&>(value).get_obj();
  value.get_obj()["a"] = 1;
  EXPECT_EQ(1u, members.size());
}

TEST(Value, MembersComeInByteOrderOfTheirKeys) {
  Object object;
  for (const char* key : {"b", "a", "B", "\xC3\xA9", "", "aa"}) object[key] = 1;
  String_type keys;
  for (const auto& member : object) keys += member.first + ",";
  EXPECT_EQ(",B,a,aa,b,\xC3\xA9,", keys);
}

TEST(Value, ACopyIsDeep) {
  Value value{Object()};
  value.get_obj()["a"] = Array{1, 2};
  Value copy(value);
  copy.get_obj()["a"].get_array()[0] = "changed";
  EXPECT_EQ(1, value.get_obj()["a"].get_array()[0].get_int());
  Value assigned;
  assigned = value;
  assigned.get_obj().clear();
  EXPECT_EQ(1u, value.get_obj().size());
}

TEST(Value, AMoveTakesTheContainerItself) {
  Value value{Object{{"a", 1}}};
  const Object* object = &value.get_obj();
  Value moved(std::move(value));
  EXPECT_EQ(object, &moved.get_obj());
  Value assigned;
  assigned = std::move(moved);
  EXPECT_EQ(object, &assigned.get_obj());
}

TEST(Value, MovesNeverThrow) {
  static_assert(std::is_nothrow_move_constructible_v<Value>);
  static_assert(std::is_nothrow_move_assignable_v<Value>);
}

TEST(Value, AMovedFromValueCanBeUsed) {
  for (Value value :
       {Value(Object{{"a", 1}}), Value(Array{1}), Value("text of some length, more than inline"), Value(1)}) {
    const Value_type type = value.type();
    const Value taken(std::move(value));
    EXPECT_EQ(type, value.type());  // NOLINT(bugprone-use-after-move)
    const Value copy(value);
    EXPECT_TRUE(copy == value);
    if (type == obj_type) {
      EXPECT_TRUE(value.get_obj().empty());
    }
    if (type == array_type) {
      EXPECT_TRUE(value.get_array().empty());
    }
    value = "again";
    EXPECT_EQ("again", value.get_str());
  }
}

TEST(Value, APartCanBeAssignedToTheWhole) {
  Value value{Object{{"a", Array{1, Object{{"b", "deep"}}}}}};
  value = std::move(value.get_obj()["a"]);
  ASSERT_EQ(array_type, value.type());
  value = value.get_array()[1];
  ASSERT_EQ(obj_type, value.type());
  value = value.get_obj()["b"];
  EXPECT_EQ("deep", value.get_str());
}

TEST(Value, AValueCanBeAssignedToItself) {
  Value value{Array{1, 2}};
  Value& same = value;
  value = same;
  EXPECT_EQ(2u, value.get_array().size());
  value = std::move(same);
  EXPECT_EQ(2u, value.get_array().size());
}

TEST(Value, NewContainersReplaceTheContent) {
  Value value("text");
  value.to_new_object()["a"] = 1;
  EXPECT_EQ(1u, value.get_obj().size());
  EXPECT_TRUE(value.to_new_object().empty());
  value.to_new_array().push_back(1);
  EXPECT_EQ(1u, value.get_array().size());
  EXPECT_TRUE(value.to_new_array().empty());
}

TEST(Value, AContainerOfTheKindIsKept) {
  Value value{Object{{"a", 1}}};
  EXPECT_EQ(1u, value.to_object().size());
  EXPECT_TRUE(value.to_array().empty());
  value.get_array().push_back(1);
  EXPECT_EQ(1u, value.to_array().size());
  EXPECT_TRUE(value.to_object().empty());
}

TEST(Value, EqualityIsDeepAndKnowsTheAlternatives) {
  EXPECT_TRUE(Value(Object{{"a", Array{1, "x"}}}) == Value(Object{{"a", Array{1, "x"}}}));
  EXPECT_FALSE(Value(Object{{"a", Array{1, "x"}}}) == Value(Object{{"a", Array{1, "y"}}}));
  EXPECT_FALSE(Value(Object()) == Value(Array()));
  EXPECT_TRUE(Value() == Value(Null()));
  EXPECT_FALSE(Value(1) == Value(1u));
  EXPECT_FALSE(Value("a") == Value(secure_string("a")));
  EXPECT_TRUE(Value(1) != Value(2));
}

TEST(Value, ComparisonByValueLooksPastTheAlternatives) {
  EXPECT_TRUE(Value(1).compare_only_value(1u));
  EXPECT_TRUE(Value(1.0).compare_only_value(1));
  EXPECT_TRUE(Value(1u).compare_only_value(1.0));
  EXPECT_FALSE(Value(-1).compare_only_value(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_TRUE(Value("a").compare_only_value(secure_string("a")));
  EXPECT_FALSE(Value("a").compare_only_value(secure_string("b")));
  EXPECT_FALSE(Value("").compare_only_value(Value()));
  EXPECT_TRUE(Value().compare_only_value(Value()));
  EXPECT_TRUE(Value(Array{1, Object{{"k", 2u}}}).compare_only_value(Array{1.0, Object{{"k", 2}}}));
  EXPECT_FALSE(Value(Array{1}).compare_only_value(Array{1, 2}));
  EXPECT_FALSE(Value(Object{{"a", 1}}).compare_only_value(Object{{"b", 1}}));
}

/// One value of each kind, in the order of the kinds.
Array one_of_each() {
  return {Object(), Array(), "s", secure_string("k"), true, 1, 1.5, Value()};
}

/// Calls the getter of a kind.
void read_as(Value_type type, const Value& value) {
  switch (type) {
    case obj_type:
      value.get_obj();
      break;
    case array_type:
      value.get_array();
      break;
    case str_type:
      value.get_str();
      break;
    case secure_str_type:
      value.get_secure_str();
      break;
    case bool_type:
      value.get_bool();
      break;
    case int_type:
      value.get_int64();
      break;
    case real_type:
      value.get_real();
      break;
    case null_type:
      value.check_type(null_type);
      break;
  }
}

TEST(Value, EachGetterTakesItsOwnKindOnly) {
  for (const Value& value : one_of_each())
    for (int type = obj_type; type <= null_type; ++type) {
      const auto read = [&] { read_as(static_cast<Value_type>(type), value); };
      if (value.type() == type) {
        EXPECT_NO_THROW(read());
      } else {
        EXPECT_THROW(read(), Type_Error) << type_name(value.type()) << " read as " << type;
      }
    }
}

TEST(Value, EveryIntegerGetterChecksTheKind) {
  const Value text("1");
  EXPECT_THROW(text.get_int(), Type_Error);
  EXPECT_THROW(text.get_uint(), Type_Error);
  EXPECT_THROW(text.get_long(), Type_Error);
  EXPECT_THROW(text.get_ulong(), Type_Error);
  EXPECT_THROW(text.get_int64(), Type_Error);
  EXPECT_THROW(text.get_uint64(), Type_Error);
}

TEST(Value, TheGettersThatGiveWriteAccessCheckTheKindToo) {
  Value number(1);
  EXPECT_THROW(number.get_obj(), Type_Error);
  EXPECT_THROW(number.get_array(), Type_Error);
  EXPECT_THROW(number.get_str(), Type_Error);
  EXPECT_THROW(number.get_secure_str(), Type_Error);
}

TEST(Value, AWrongGetterSaysWhatTheValueIs) {
  try {
    Value(Array()).get_obj();
    FAIL();
  } catch (const std::exception& fault) {
    EXPECT_STREQ("JSON value is an array, not an object", fault.what());
  }
}

}  // namespace
}  // namespace json_spirit
