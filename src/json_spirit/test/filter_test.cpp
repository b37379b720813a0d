#include "json_spirit/filter.h"

#include <gtest/gtest.h>

#include <thread>

namespace json_spirit {
namespace {

class Filter : public testing::Test {
 protected:
  Array array_{5, Object{{"n", 1}}, "text", Object{{"n", 2}}, 1.5, true, Array{1, 2}, secure_string("key"), Value(),
               -7};
  Object object_{{"a", 1}, {"b", "x"}, {"c", Object{{"k", 1}}}, {"d", "y"}};
  const Array& read_array_ = array_;
  const Object& read_object_ = object_;
};

TEST_F(Filter, YieldsTheElementsOfTheKindInTheirOrder) {
  std::vector<int> seen;
  for (const Object& object : read_array_ | get_obj) seen.push_back(object.at("n").get_int());
  EXPECT_EQ((std::vector<int>{1, 2}), seen);
}

TEST_F(Filter, AnEmptyArrayYieldsNothing) {
  const Array empty;
  for (const Object& object : empty | get_obj) FAIL() << object.size();
  EXPECT_TRUE((empty | get_str).empty());
  EXPECT_FALSE((array_ | get_str).empty());
}

TEST_F(Filter, AnArrayWithoutTheKindYieldsNothing) {
  const Array numbers{1, 2};
  for (const Object& object : numbers | get_obj) FAIL() << object.size();
}

/// How often a filter lets an element through, and the last one.
template <typename T, typename Range>
std::pair<int, T> last_of(Range&& range) {
  std::pair<int, T> seen{};
  for (auto&& element : range) {
    ++seen.first;
    seen.second = element;
  }
  return seen;
}

TEST_F(Filter, EachConstantYieldsItsKind) {
  EXPECT_EQ((std::pair<int, String_type>(1, "text")), last_of<String_type>(read_array_ | get_str));
  EXPECT_EQ((std::pair<int, secure_string>(1, "key")), last_of<secure_string>(read_array_ | get_secure_str));
  EXPECT_EQ((std::pair<int, bool>(1, true)), last_of<bool>(read_array_ | get_bool));
  EXPECT_EQ((std::pair<int, int>(2, -7)), last_of<int>(read_array_ | get_int));
  EXPECT_EQ((std::pair<int, unsigned int>(2, -7)), last_of<unsigned int>(read_array_ | get_uint));
  EXPECT_EQ((std::pair<int, std::int64_t>(2, -7)), last_of<std::int64_t>(read_array_ | get_int64));
  EXPECT_EQ((std::pair<int, std::uint64_t>(2, -7)), last_of<std::uint64_t>(read_array_ | get_uint64));
  EXPECT_EQ((std::pair<int, double>(1, 1.5)), last_of<double>(read_array_ | get_real));
  EXPECT_EQ(2u, last_of<Array>(read_array_ | get_array).second.size());
  EXPECT_EQ(1u, last_of<Object>(read_array_ | get_obj).second.size());
}

TEST_F(Filter, NothingIsCopied) {
  auto range = read_array_ | get_obj;
  EXPECT_EQ(&array_[1].get_obj(), &*range.begin());
}

TEST_F(Filter, AnArrayThatIsNotConstGivesWriteAccess) {
  for (Object& object : array_ | get_obj) object["n"] = 9;
  for (String_type& text : array_ | get_str) text += "!";
  EXPECT_EQ(9, array_[3].get_obj()["n"].get_int());
  EXPECT_EQ("text!", array_[2].get_str());
}

TEST_F(Filter, AConstArrayGivesNone) {
  static_assert(std::is_same_v<const Object&, decltype(*(read_array_ | get_obj).begin())>);
  static_assert(std::is_same_v<Object&, decltype(*(array_ | get_obj).begin())>);
  static_assert(std::is_same_v<int, decltype(*(array_ | get_int).begin())>);
}

TEST_F(Filter, ARvalueIsOwnedByTheRangeAndGivesItsElementsAway) {
  static_assert(std::is_same_v<Object&&, decltype(*(std::move(array_) | get_obj).begin())>);
  const Object* first = &array_[1].get_obj();
  std::vector<Value> taken;
  for (Object&& object : std::move(array_) | get_obj) taken.emplace_back(std::move(object));
  ASSERT_EQ(2u, taken.size());
  EXPECT_EQ(1, taken[0].get_obj()["n"].get_int());
  EXPECT_TRUE(array_.empty());  // NOLINT(bugprone-use-after-move)
  EXPECT_NE(nullptr, first);
  int sum = 0;
  for (const int n : Array{1, "x", 2} | get_int) sum += n;
  EXPECT_EQ(3, sum);
}

TEST_F(Filter, AnObjectYieldsPairsOfKeyAndContent) {
  String_type seen;
  for (const auto& [key, text] : read_object_ | get_str) seen += key + "=" + text + ";";
  EXPECT_EQ("b=x;d=y;", seen);
}

TEST_F(Filter, AnObjectThatIsNotConstGivesWriteAccess) {
  for (auto [key, text] : object_ | get_str) text += key;
  for (auto [key, inner] : object_ | get_obj) inner["k"] = key;
  EXPECT_EQ("yd", object_["d"].get_str());
  EXPECT_EQ("c", object_["c"].get_obj()["k"].get_str());
  static_assert(
      std::is_same_v<std::pair<const String_type&, const String_type&>, decltype(*(read_object_ | get_str).begin())>);
  static_assert(std::is_same_v<std::pair<const String_type&, int>, decltype(*(object_ | get_int).begin())>);
}

TEST_F(Filter, ARvalueObjectGivesItsMembersAway) {
  std::vector<String_type> taken;
  for (auto&& [key, text] : std::move(object_) | get_str) taken.push_back(std::move(text));
  EXPECT_EQ((std::vector<String_type>{"x", "y"}), taken);
}

TEST_F(Filter, AConstantIsAPairOfTestAndConversion) {
  EXPECT_EQ(obj_type, get_obj.pred.type);
  EXPECT_TRUE(get_obj.pred(array_[1]));
  EXPECT_FALSE(get_obj.pred(array_[0]));
  EXPECT_TRUE(get_str.pred(*object_.find("b")));
  EXPECT_EQ(&array_[1].get_obj(), &get_obj.conv(array_[1]));
  EXPECT_EQ("text", get_str_helper(read_array_[2]));
  static_assert(std::is_same_v<String_type&&, decltype(get_str_helper(Value("moved")))>);
  static_assert(std::is_same_v<const String_type&, decltype(get_str_helper(read_array_[2]))>);
  static_assert(std::is_same_v<String_type&, decltype(get_str_helper(array_[2]))>);
}

TEST_F(Filter, AnIteratorCanBeCopiedAndCompared) {
  auto range = read_array_ | get_obj;
  auto at = range.begin();
  const auto before = at++;
  EXPECT_TRUE(before == range.begin());
  EXPECT_TRUE(at != before);
  EXPECT_EQ(2, std::distance(range.begin(), range.end()));
}

// Empty containers are made when they are looked at, which is a read like any other.
TEST(Threads, ManyMayReadADocumentWhileNobodyWrites) {
  Array items;
  for (int i = 0; i < 2000; ++i) items.push_back(i % 2 ? Value(Object()) : Value(Array()));
  const Array& document = items;
  std::vector<std::vector<const void*>> seen(4);
  std::vector<std::thread> threads;
  for (auto& addresses : seen)
    threads.emplace_back([&] {
      for (const Object& object : document | get_obj) addresses.push_back(&object);
      for (const Array& array : document | get_array) addresses.push_back(&array);
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(2000u, seen[0].size());
  for (const auto& addresses : seen) EXPECT_EQ(seen[0], addresses);
}

}  // namespace
}  // namespace json_spirit
