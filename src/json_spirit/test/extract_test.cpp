#include "json_spirit/extract.h"

#include <gtest/gtest.h>

#include <set>

#include "support/log_capture.h"

namespace json_spirit {
namespace {

class Extract : public testing::Test {
 protected:
  Object object_{{"text", "x"},
                 {"flag", true},
                 {"number", 65537},
                 {"big", std::uint64_t{0x1'0000'0005}},
                 {"negative", -2},
                 {"object", Object{{"k", 1}}},
                 {"array", Array{1, "two", 3}}};
  const Object& read_ = object_;
};

TEST_F(Extract, ReadsValuesInAnyOrder) {
  std::string text;
  bool flag = false;
  int number = 0;
  long wide = 0;
  unsigned short small = 0;
  unsigned int natural = 0;
  unsigned long widest = 0;
  extract(read_)("widest", widest)("number", number)("text", text)("flag", flag)("big", wide)("negative", natural)(
      "number", small)("big", widest);
  EXPECT_EQ("x", text);
  EXPECT_TRUE(flag);
  EXPECT_EQ(65537, number);
  EXPECT_EQ(0x1'0000'0005, wide);
  EXPECT_EQ(1, small);
  EXPECT_EQ(0xFFFF'FFFEu, natural);
  EXPECT_EQ(0x1'0000'0005u, widest);
}

TEST_F(Extract, ValuesKeepTheirDefaultOnAMiss) {
  for (const char* key : {"absent", "object"}) {
    std::string text = "default";
    bool flag = true;
    int number = 1;
    long wide = 2;
    unsigned short small = 3;
    unsigned int natural = 4;
    unsigned long widest = 5;
    extract(read_)(key, text)(key, flag)(key, number)(key, wide)(key, small)(key, natural)(key, widest);
    EXPECT_EQ("default", text);
    EXPECT_TRUE(flag);
    EXPECT_EQ(1, number);
    EXPECT_EQ(2, wide);
    EXPECT_EQ(3, small);
    EXPECT_EQ(4u, natural);
    EXPECT_EQ(5u, widest);
  }
}

TEST_F(Extract, PointersLeadIntoTheObject) {
  const String_type* text = nullptr;
  const Object* object = nullptr;
  const Array* array = nullptr;
  extract(read_)("text", text)("object", object)("array", array);
  EXPECT_EQ(&object_["text"].get_str(), text);
  EXPECT_EQ(&object_["object"].get_obj(), object);
  EXPECT_EQ(&object_["array"].get_array(), array);
}

TEST_F(Extract, PointersBecomeNullOnAMiss) {
  const String_type elsewhere;
  const Object other_object;
  const Array other_array;
  for (const char* key : {"absent", "number"}) {
    const String_type* text = &elsewhere;
    const Object* object = &other_object;
    const Array* array = &other_array;
    extract(read_)(key, text)(key, object)(key, array);
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(nullptr, array);
  }
}

TEST_F(Extract, AnObjectThatIsNotConstGivesWriteAccess) {
  String_type* text = nullptr;
  Object* object = nullptr;
  Array* array = nullptr;
  const String_type* read_text = nullptr;
  extract(object_)("text", text)("object", object)("array", array)("text", read_text);
  *text = "changed";
  object->clear();
  array->clear();
  EXPECT_EQ("changed", *read_text);
  EXPECT_TRUE(read_.at("object").get_obj().empty());
  EXPECT_TRUE(read_.at("array").get_array().empty());
  extract(object_)("absent", text)("number", object)("flag", array);
  EXPECT_EQ(nullptr, text);
  EXPECT_EQ(nullptr, object);
  EXPECT_EQ(nullptr, array);
}

TEST_F(Extract, AConstObjectGivesNoWriteAccess) {
  static_assert(!std::is_invocable_v<Const_Object_Extractor&, const char*, String_type*&, Flags>);
  static_assert(!std::is_invocable_v<Const_Object_Extractor&, const char*, Array*&, Flags>);
  static_assert(std::is_invocable_v<Object_Extractor&, const char*, Array*&, Flags>);
}

TEST_F(Extract, ARvalueIsOwnedByItsExtractor) {
  auto extractor = extract(std::move(object_));
  static_assert(std::is_same_v<decltype(extractor), Object_Move_Extractor>);
  EXPECT_TRUE(object_.empty());  // NOLINT(bugprone-use-after-move)
  const String_type* text = nullptr;
  Array taken{9};
  Array* left = nullptr;
  extractor("text", text)("array", taken)("array", left);
  EXPECT_EQ("x", *text);
  EXPECT_EQ(3u, taken.size());
  EXPECT_TRUE(left->empty());
}

TEST_F(Extract, AnArrayThatIsNotThereKeepsItsDefault) {
  Array array{9};
  extract(std::move(object_))("absent", array)("text", array);
  EXPECT_EQ(1u, array.size());
}

TEST_F(Extract, OnlyAnOwnedObjectGivesItsArraysAway) {
  static_assert(!std::is_invocable_v<Const_Object_Extractor&, const char*, Array&, Flags>);
  static_assert(!std::is_invocable_v<Object_Extractor&, const char*, Array&, Flags>);
  static_assert(std::is_invocable_v<Object_Move_Extractor&, const char*, Array&, Flags>);
}

TEST_F(Extract, TheBasesAreTheStatedOnes) {
  static_assert(std::is_base_of_v<Object_Value_Extractor<Const_Object_Extractor, false>, Const_Object_Extractor>);
  static_assert(std::is_base_of_v<Object_Pointer_Extractor<Const_Object_Extractor, true>, Const_Object_Extractor>);
  static_assert(std::is_base_of_v<Object_Pointer_Extractor<Object_Extractor, false>, Object_Extractor>);
  static_assert(std::is_base_of_v<Object_Value_Extractor<Object_Move_Extractor, true>, Object_Move_Extractor>);
  static_assert(std::is_base_of_v<Callbackable_T<Object_Extractor>, Object_Extractor>);
  static_assert(std::is_base_of_v<Flaggable_T<Object_Extractor>, Object_Extractor>);
  static_assert(std::is_base_of_v<Container_Loader, Object_Extractor>);
}

template <typename T>
void expect_required(const Object& object, const char* key) {
  T dest{};
  EXPECT_THROW(extract_or_throw(object)("absent", dest), std::exception);
  EXPECT_THROW(extract_or_throw(object)("null", dest), std::exception);
  EXPECT_NO_THROW(extract_or_throw(object)(key, dest)) << key;
}

TEST_F(Extract, ARequiredKeyThrowsOnAMiss) {
  object_["null"] = Value();
  expect_required<std::string>(read_, "text");
  expect_required<bool>(read_, "flag");
  expect_required<int>(read_, "number");
  expect_required<long>(read_, "number");
  expect_required<unsigned short>(read_, "number");
  expect_required<unsigned int>(read_, "number");
  expect_required<unsigned long>(read_, "number");
  expect_required<const String_type*>(read_, "text");
  expect_required<const Object*>(read_, "object");
  expect_required<const Array*>(read_, "array");
}

TEST_F(Extract, RequiredIntegersAreReadByTheirLowBits) {
  unsigned short small = 0;
  unsigned int natural = 0;
  int number = 0;
  extract_or_throw(read_)("number", small)("big", natural)("big", number);
  EXPECT_EQ(1, small);
  EXPECT_EQ(5u, natural);
  EXPECT_EQ(5, number);
  extract_or_throw(read_)("negative", small)("negative", natural);
  EXPECT_EQ(65534, small);
  EXPECT_EQ(0xFFFF'FFFEu, natural);
}

TEST_F(Extract, AfterARequiredMissNothingMoreIsRead) {
  std::string first = "first";
  int second = 7;
  EXPECT_THROW(extract_or_throw(read_)("absent", first)("number", second), std::exception);
  EXPECT_EQ("first", first);
  EXPECT_EQ(7, second);
}

TEST_F(Extract, APointerIsUntouchedByARequiredMiss) {
  const String_type elsewhere;
  const String_type* text = &elsewhere;
  EXPECT_THROW(extract_or_throw(read_)("absent", text), std::exception);
  EXPECT_EQ(&elsewhere, text);
}

TEST_F(Extract, TheExceptionTellsWhatIsMissing) {
  std::string text;
  try {
    extract_or_throw(read_)("seq", text);
    FAIL();
  } catch (const std::exception& fault) {
    EXPECT_STREQ("JSON member 'seq' is missing", fault.what());
  }
}

TEST_F(Extract, ThePolicyCanChangeInMidChain) {
  int number = 1, other = 2;
  EXPECT_NO_THROW(extract_or_throw(read_)("number", number).throwable(false)("absent", other));
  EXPECT_EQ(65537, number);
  EXPECT_THROW(extract(read_)("absent", other).flags(FG_THROW)("absent", other), std::exception);
  EXPECT_THROW(extract(read_).throwable(true)("absent", other), std::exception);
  EXPECT_NO_THROW(extract_or_throw(read_)("absent", other, FG_NOTHROW));
}

TEST_F(Extract, AnOwnedObjectThrowsToo) {
  Array array;
  EXPECT_THROW(extract(std::move(object_)).throwable(true)("absent", array), std::exception);
}

TEST_F(Extract, AFunctionIsCalledWithTheValue) {
  std::vector<Value_type> seen;
  const auto note = [&](const Value& value) { seen.push_back(value.type()); };
  extract(read_)("array", note)("absent", note)("text", note);
  EXPECT_EQ((std::vector<Value_type>{array_type, str_type}), seen);
  EXPECT_THROW(extract_or_throw(read_)("absent", note), std::exception);
}

TEST_F(Extract, AContainerTakesTheElementsOfItsKind) {
  std::vector<int> numbers{0};
  std::set<std::string> texts;
  extract(read_)("array", numbers)("array", texts)("absent", texts);
  EXPECT_EQ((std::vector<int>{0, 1, 3}), numbers);
  EXPECT_EQ((std::set<std::string>{"two"}), texts);
  EXPECT_THROW(extract_or_throw(read_)("text", texts), std::exception);
}

TEST_F(Extract, TheShortFormGivesThePointer) {
  EXPECT_EQ(&object_["text"].get_str(), object_get_any_ptr<const String_type>(read_, "text"));
  EXPECT_EQ(&object_["object"].get_obj(), object_get_any_ptr<const Object>(read_, "object"));
  EXPECT_EQ(&object_["array"].get_array(), object_get_any_ptr<const Array>(read_, "array"));
  EXPECT_EQ(&object_["array"].get_array(), object_get_any_ptr<Array>(object_, "array"));
  EXPECT_EQ(nullptr, object_get_any_ptr<const String_type>(read_, "absent"));
  EXPECT_EQ(nullptr, object_get_any_ptr<const Array>(object_, "text"));
}

TEST_F(Extract, IntegerReadsDispatchOnThePolicy) {
  unsigned short small = 9;
  EXPECT_TRUE(object_get_may_throw(read_, "number", small, false));
  EXPECT_EQ(1, small);
  EXPECT_FALSE(object_get_may_throw(read_, "absent", small, false));
  EXPECT_EQ(1, small);
  EXPECT_THROW(object_get_may_throw(read_, "absent", small, true), std::exception);
  EXPECT_EQ(65537, (Integral_Getter<int, true>::get(read_, "number")));
  EXPECT_EQ(5u, (Integral_Getter<unsigned, false>::get(read_.at("big"))));
}

TEST_F(Extract, NoReadLogs) {
  const test_support::Log_Capture log;
  std::string text;
  extract(read_)("absent", text)("number", text);
  EXPECT_THROW(extract_or_throw(read_)("absent", text), std::exception);
  pextract(read_)("/absent", text).chroot("/none")("/text", text);
  EXPECT_EQ("", log.all());
}

}  // namespace
}  // namespace json_spirit
