#include "json_spirit/json_pointer.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace json_spirit {
namespace {

class Pointer : public testing::Test {
 protected:
  Value doc_ = Object{
      {"", "empty key"},
      {"a/b", "slash"},
      {"m~n", "tilde"},
      {"~1", "escaped twice"},
      {"flag", true},
      {"real", 1.5},
      {"number", 65537},
      {"negative", -2},
      {"big", std::uint64_t{0xFFFF'FFFF'0000'0005}},
      {"text", "x"},
      {"secret", secure_string("k")},
      {"null", Value()},
      {"items", Array{Object{{"status", Object{{"podIP", "10.0.0.1"}}}}, "second", Array{1, 2}}},
      {"spec", Object{{"csi", Object{{"volumeAttributes", Object{{"everest.io/disk-volume-type", "SSD"}}}}}}},
  };

  /// What a read as @a T gives; @a missing if there is nothing to read.
  template <typename T>
  T read(const char* path, T missing) const {
    T dest = missing;
    const bool found = JSON_Pointer(path, false, true).get(doc_, dest);
    EXPECT_TRUE(found || dest == missing) << path;
    return dest;
  }
  std::string text(const char* path) const { return read<std::string>(path, "(none)"); }
  bool exists(const char* path) const { return read<const Value*>(path, nullptr) != nullptr; }
};

TEST_F(Pointer, FollowsKeysAndIndexes) {
  EXPECT_EQ("10.0.0.1", text("/items/0/status/podIP"));
  EXPECT_EQ("second", text("/items/1"));
  EXPECT_EQ(2, read("/items/2/1", 0));
}

TEST_F(Pointer, DecodesTheTwoEscapes) {
  EXPECT_EQ("SSD", text("/spec/csi/volumeAttributes/everest.io~1disk-volume-type"));
  EXPECT_EQ("slash", text("/a~1b"));
  EXPECT_EQ("tilde", text("/m~0n"));
  EXPECT_EQ("escaped twice", text("/~01"));
}

TEST_F(Pointer, TheEmptyPathIsTheRoot) {
  EXPECT_EQ(&doc_, read<const Value*>("", nullptr));
  Value copy;
  EXPECT_TRUE(JSON_Pointer().get(doc_, copy));
  EXPECT_TRUE(copy == doc_);
}

TEST_F(Pointer, ASlashAloneIsTheEmptyKey) {
  EXPECT_EQ("empty key", text("/"));
}

TEST_F(Pointer, APathThatLeadsNowhereReadsNothing) {
  for (const char* path :
       {"/none", "/items/3", "/items/-1", "/items/-", "/items/x", "/items/", "/items/0x0", "/items/1a",
        "/items/99999999999999999999", "/text/0", "/null/a", "/number/a", "/text/", "/items/0/none/a"})
    EXPECT_FALSE(exists(path)) << path;
}

TEST_F(Pointer, AnIndexHasNoLeadingZerosOrSigns) {
  EXPECT_TRUE(exists("/items/0"));
  for (const char* path : {"/items/00", "/items/01", "/items/+1", "/items/ 1", "/items/1 "})
    EXPECT_FALSE(exists(path)) << path;
}

TEST_F(Pointer, AnIllFormedPathReadsNothing) {
  for (const char* path : {"text", "text/", "~0", "/m~2n", "/m~", "/text~"}) EXPECT_FALSE(exists(path)) << path;
}

TEST_F(Pointer, OnlyAnIllFormedPathIsLoggedAndOnlyIfAskedFor) {
  const test_support::Log_Capture log;
  const Value* found = nullptr;
  EXPECT_FALSE(JSON_Pointer("/none/at/all", false, true).get(doc_, found));
  bool flag = false;
  EXPECT_FALSE(JSON_Pointer("/text", false, true).get(doc_, flag));
  EXPECT_FALSE(JSON_Pointer("text", false, false).get(doc_, found));
  EXPECT_EQ("", log.all());
  EXPECT_FALSE(JSON_Pointer("text", false, true).get(doc_, found));
  EXPECT_TRUE(log.has(LM_ERROR, "JSON Pointer path 'text' is ill-formed.\n")) << log.all();
}

TEST_F(Pointer, ReadsEachKindByValue) {
  EXPECT_TRUE(read("/flag", false));
  EXPECT_EQ(1.5, read("/real", 0.0));
  EXPECT_EQ(65537, read("/number", 0));
  EXPECT_EQ(65537u, read("/number", 0u));
  EXPECT_EQ(-2, read("/negative", std::int64_t{0}));
  EXPECT_EQ(0xFFFF'FFFF'0000'0005u, read("/big", std::uint64_t{0}));
  EXPECT_EQ("x", text("/text"));
  EXPECT_EQ("k", read("/secret", secure_string("none")));
  EXPECT_EQ(3u, read("/items", Array()).size());
  EXPECT_EQ(1u, read("/spec", Object()).size());
  EXPECT_TRUE(read("/text", Value()) == Value("x"));
}

TEST_F(Pointer, IntegersAreReadByTheirLowBits) {
  EXPECT_EQ(1, read("/number", short{0}));
  EXPECT_EQ(1, read("/number", static_cast<unsigned short>(0)));
  EXPECT_EQ(65534, read("/negative", static_cast<unsigned short>(0)));
  EXPECT_EQ(5, read("/big", 0));
  EXPECT_EQ(0xFFFF'FFFEu, read("/negative", 0u));
}

TEST_F(Pointer, AValueOfAnotherKindIsNotRead) {
  for (const char* path : {"/items", "/null", "/spec"}) {
    EXPECT_FALSE(read(path, false)) << path;
    EXPECT_EQ(7.5, read(path, 7.5)) << path;
    EXPECT_EQ(7, read(path, short{7})) << path;
    EXPECT_EQ(7, read(path, static_cast<unsigned short>(7))) << path;
    EXPECT_EQ(7, read(path, 7)) << path;
    EXPECT_EQ(7u, read(path, 7u)) << path;
    EXPECT_EQ(7, read(path, std::int64_t{7})) << path;
    EXPECT_EQ(7u, read(path, std::uint64_t{7})) << path;
    EXPECT_EQ("(none)", text(path)) << path;
    EXPECT_EQ("none", read(path, secure_string("none"))) << path;
  }
  EXPECT_EQ(0u, read("/text", Array()).size());
  EXPECT_EQ(0u, read("/text", Object()).size());
  EXPECT_EQ("(none)", text("/secret"));
  EXPECT_EQ(7, read("/real", 7));
  EXPECT_EQ(7.5, read("/number", 7.5));
}

template <typename Root>
void expect_const_pointers(const Root& root) {
  const String_type* text = nullptr;
  const secure_string* secret = nullptr;
  const char* chars = nullptr;
  const Object* object = nullptr;
  const Array* array = nullptr;
  const Value* value = nullptr;
  EXPECT_TRUE(JSON_Pointer("/text", false, true).get(root, text));
  EXPECT_TRUE(JSON_Pointer("/secret", false, true).get(root, secret));
  EXPECT_TRUE(JSON_Pointer("/text", false, true).get(root, chars));
  EXPECT_TRUE(JSON_Pointer("/spec", false, true).get(root, object));
  EXPECT_TRUE(JSON_Pointer("/items", false, true).get(root, array));
  EXPECT_TRUE(JSON_Pointer("/flag", false, true).get(root, value));
  EXPECT_EQ("x", *text);
  EXPECT_EQ("k", *secret);
  EXPECT_EQ(text->c_str(), chars);
  EXPECT_EQ(1u, object->size());
  EXPECT_EQ(3u, array->size());
  EXPECT_TRUE(value->get_bool());
}

TEST_F(Pointer, ReadsPointersToConstFromEveryRoot) {
  expect_const_pointers(std::as_const(doc_));
  expect_const_pointers(std::as_const(doc_).get_obj());
  const String_type* text = nullptr;
  EXPECT_TRUE(JSON_Pointer("/text", false, true).get(doc_, text));  // a root that isn't const gives them too
  EXPECT_TRUE(JSON_Pointer("/text", false, true).get(doc_.get_obj(), text));
}

template <typename Root>
void expect_pointers(Root& root) {
  String_type* text = nullptr;
  secure_string* secret = nullptr;
  char* chars = nullptr;
  Object* object = nullptr;
  Array* array = nullptr;
  Value* value = nullptr;
  EXPECT_TRUE(JSON_Pointer("/text", false, true).get(root, text));
  EXPECT_TRUE(JSON_Pointer("/secret", false, true).get(root, secret));
  EXPECT_TRUE(JSON_Pointer("/text", false, true).get(root, chars));
  EXPECT_TRUE(JSON_Pointer("/spec", false, true).get(root, object));
  EXPECT_TRUE(JSON_Pointer("/items", false, true).get(root, array));
  EXPECT_TRUE(JSON_Pointer("/flag", false, true).get(root, value));
  chars[0] = 'y';
  EXPECT_EQ("y", *text);
  *text = "x";
  object->insert({"added", 1});
  array->push_back(1);
  *value = false;
  EXPECT_EQ("k", *secret);
}

TEST_F(Pointer, ReadsPointersFromRootsThatMayBeChanged) {
  Value copy = doc_;
  expect_pointers(doc_);
  EXPECT_EQ(2u, doc_.get_obj()["spec"].get_obj().size());
  expect_pointers(copy.get_obj());
  EXPECT_EQ(4u, copy.get_obj()["items"].get_array().size());
}

TEST_F(Pointer, APointerKeepsItsValueIfThereIsNothingToRead) {
  const String_type before;
  const String_type* text = &before;
  EXPECT_FALSE(JSON_Pointer("/none", false, true).get(doc_, text));
  EXPECT_FALSE(JSON_Pointer("/number", false, true).get(doc_, text));
  EXPECT_EQ(&before, text);
}

TEST_F(Pointer, AnObjectOrArrayCanBeTheRoot) {
  Object& object = doc_.get_obj();
  Array& array = object["items"].get_array();
  const Array& const_array = array;
  std::string text;
  EXPECT_TRUE(JSON_Pointer("/text", false, true).get(std::as_const(object), text));
  EXPECT_EQ("x", text);
  EXPECT_TRUE(JSON_Pointer("/1", false, true).get(const_array, text));
  EXPECT_EQ("second", text);
  Value* value = nullptr;
  EXPECT_TRUE(JSON_Pointer("/2/0", false, true).get(array, value));
  EXPECT_EQ(1, value->get_int());
  EXPECT_FALSE(JSON_Pointer("/7", false, true).get(array, value));
  EXPECT_FALSE(JSON_Pointer("7", false, false).get(array, value));
}

TEST_F(Pointer, TheEmptyPathOfAnObjectOrArrayIsThat) {
  Object& object = doc_.get_obj();
  const Object* at = nullptr;
  EXPECT_TRUE(JSON_Pointer("", false, true).get(object, at));
  EXPECT_EQ(&object, at);
  Object copy;
  EXPECT_TRUE(JSON_Pointer("", false, true).get(std::as_const(object), copy));
  EXPECT_EQ(object.size(), copy.size());
  Value value;
  EXPECT_TRUE(JSON_Pointer("", false, true).get(std::as_const(object), value));
  EXPECT_TRUE(value == doc_);
  const Value* none = nullptr;
  EXPECT_FALSE(JSON_Pointer("", false, true).get(object, none));  // no Value holds it
  Array array{1};
  Array* array_at = nullptr;
  EXPECT_TRUE(JSON_Pointer("", false, true).get(array, array_at));
  EXPECT_EQ(&array, array_at);
  int number = 7;
  EXPECT_FALSE(JSON_Pointer("", false, true).get(array, number));
}

TEST_F(Pointer, ARvalueRootGivesItsContentAway) {
  doc_.get_obj()["long"] = String_type(100, 'x');
  const char* at = doc_.get_obj()["long"].get_str().data();
  std::string text;
  EXPECT_TRUE(JSON_Pointer("/long", false, true).get(std::move(doc_), text));
  EXPECT_EQ(at, text.data());
  EXPECT_TRUE(doc_.get_obj()["long"].is_null());

  const Array* items = &doc_.get_obj()["items"].get_array();
  Value value;
  EXPECT_TRUE(JSON_Pointer("/items", false, true).get(std::move(doc_.get_obj()), value));
  EXPECT_EQ(items, &value.get_array());
  EXPECT_TRUE(doc_.get_obj()["items"].is_null());

  Object object;
  EXPECT_TRUE(JSON_Pointer("/0/status", false, true).get(std::move(value.get_array()), object));
  EXPECT_EQ("10.0.0.1", object["podIP"].get_str());
  secure_string secret;
  EXPECT_TRUE(JSON_Pointer("/secret", false, true).get(std::move(doc_), secret));
  EXPECT_EQ("k", secret);
  Array array;
  EXPECT_TRUE(JSON_Pointer("/2", false, true).get(std::move(value), array));
  EXPECT_EQ(2u, array.size());
}

TEST_F(Pointer, ARvalueRootKeepsWhatWasNotRead) {
  std::string text = "before";
  EXPECT_FALSE(JSON_Pointer("/items", false, true).get(std::move(doc_), text));
  EXPECT_EQ("before", text);
  EXPECT_EQ(3u, doc_.get_obj()["items"].get_array().size());
}

TEST_F(Pointer, TheWholeDocumentCanBeReplacedByAPartOfIt) {
  EXPECT_TRUE(JSON_Pointer("/items/0/status", false, true).get(std::move(doc_), doc_));
  EXPECT_TRUE(doc_ == Value(Object{{"podIP", "10.0.0.1"}}));
}

TEST_F(Pointer, MoveTakesTheContentAndLeavesNull) {
  std::string text;
  secure_string secret;
  Object object;
  Array array;
  Value value;
  EXPECT_TRUE(JSON_Pointer("/text", false, true).move(doc_, text));
  EXPECT_TRUE(JSON_Pointer("/secret", false, true).move(doc_.get_obj(), secret));
  EXPECT_TRUE(JSON_Pointer("/spec", false, true).move(doc_, object));
  EXPECT_TRUE(JSON_Pointer("/2", false, true).move(doc_.get_obj()["items"].get_array(), array));
  EXPECT_TRUE(JSON_Pointer("/flag", false, true).move(doc_, value));
  EXPECT_EQ("x", text);
  EXPECT_EQ("k", secret);
  EXPECT_EQ(1u, object.size());
  EXPECT_EQ(2u, array.size());
  EXPECT_TRUE(value.get_bool());
  for (const char* path : {"/text", "/secret", "/spec", "/items/2", "/flag"})
    EXPECT_TRUE(read<const Value*>(path, nullptr)->is_null()) << path;
  EXPECT_FALSE(JSON_Pointer("/none", false, true).move(doc_, text));
}

TEST_F(Pointer, SetReplacesWhatIsThere) {
  EXPECT_TRUE(JSON_Pointer("/items/0/status/podIP", false, true).set(doc_, "10.0.0.2"));
  EXPECT_EQ("10.0.0.2", text("/items/0/status/podIP"));
  EXPECT_TRUE(JSON_Pointer("/items/1", false, true).set(doc_, Array{1}));
  EXPECT_EQ(1, read("/items/1/0", 0));
}

TEST_F(Pointer, SetTakesEveryKind) {
  Value doc;
  const String_type text = "text";
  const Object object{{"k", 1}};
  EXPECT_TRUE(JSON_Pointer("/bool", false, true).set(doc, true));
  EXPECT_TRUE(JSON_Pointer("/double", false, true).set(doc, 1.5));
  EXPECT_TRUE(JSON_Pointer("/object", false, true).set(doc, object));
  EXPECT_TRUE(JSON_Pointer("/array", false, true).set(doc, Array{1}));
  EXPECT_TRUE(JSON_Pointer("/value", false, true).set(doc, Value()));
  EXPECT_TRUE(JSON_Pointer("/string", false, true).set(doc, text));
  EXPECT_TRUE(JSON_Pointer("/secure", false, true).set(doc, secure_string("k")));
  EXPECT_TRUE(JSON_Pointer("/chars", false, true).set(doc, "c"));
  EXPECT_TRUE(JSON_Pointer("/int64", false, true).set(doc, std::int64_t{-1}));
  EXPECT_TRUE(JSON_Pointer("/uint64", false, true).set(doc, std::uint64_t{1}));
  EXPECT_TRUE(JSON_Pointer("/int", false, true).set(doc, 2));
  EXPECT_TRUE(JSON_Pointer("/unsigned", false, true).set(doc, 3u));
  EXPECT_TRUE(doc == Value(Object{{"bool", true},
                                  {"double", 1.5},
                                  {"object", object},
                                  {"array", Array{1}},
                                  {"value", Value()},
                                  {"string", "text"},
                                  {"secure", secure_string("k")},
                                  {"chars", "c"},
                                  {"int64", -1},
                                  {"uint64", 1u},
                                  {"int", 2},
                                  {"unsigned", 3u}}));
}

TEST_F(Pointer, SetMovesWhatItIsGiven) {
  String_type text(100, 'x');
  const char* at = text.data();
  EXPECT_TRUE(JSON_Pointer("/text", false, true).set(doc_, std::move(text)));
  EXPECT_EQ(at, read<const String_type*>("/text", nullptr)->data());
}

TEST_F(Pointer, SetMakesTheMembersOnTheWay) {
  EXPECT_TRUE(JSON_Pointer("/new/deep~1er/leaf", false, true).set(doc_, 1));
  EXPECT_EQ(1, read("/new/deep~1er/leaf", 0));
  EXPECT_TRUE(JSON_Pointer("/null/now", false, true).set(doc_, 2));
  EXPECT_EQ(2, read("/null/now", 0));
}

TEST_F(Pointer, SetAppendsToAnArray) {
  EXPECT_TRUE(JSON_Pointer("/items/-", false, true).set(doc_, 4));
  EXPECT_TRUE(JSON_Pointer("/items/4", false, true).set(doc_, 5));
  EXPECT_TRUE(JSON_Pointer("/items/-/name", false, true).set(doc_, "n"));
  EXPECT_EQ(4, read("/items/3", 0));
  EXPECT_EQ(5, read("/items/4", 0));
  EXPECT_EQ("n", text("/items/5/name"));
}

TEST_F(Pointer, SetOfTheEmptyPathReplacesTheRoot) {
  EXPECT_TRUE(JSON_Pointer("", false, true).set(doc_, Array{1}));
  EXPECT_TRUE(doc_ == Value(Array{1}));
}

TEST_F(Pointer, SetWhereThereIsNoPlaceChangesNothing) {
  const Value before = doc_;
  for (const char* path : {"/items/9", "/items/x", "/items/01", "/text/a", "/number/a/b", "/items/9/new", "ill-formed",
                           "/new/bad~2", "/items/1/a"})
    EXPECT_FALSE(JSON_Pointer(path, false, false).set(doc_, 1)) << path;
  EXPECT_TRUE(before == doc_);
}

TEST_F(Pointer, ThePathCanBeReplaced) {
  JSON_Pointer pointer;
  EXPECT_STREQ("", pointer.path());
  const char* path = "/text";
  pointer.path(path, false);
  EXPECT_EQ(path, pointer.path());
  std::string text;
  EXPECT_TRUE(pointer.get(doc_, text));
  EXPECT_EQ("x", text);
}

TEST_F(Pointer, ACopiedPathOutlivesTheCallersText) {
  std::string path = "/text";
  JSON_Pointer pointer(path.c_str(), true, true);
  path = "/flag";
  EXPECT_STREQ("/text", pointer.path());
  pointer.path(pointer.path() + 0, true);
  EXPECT_STREQ("/text", pointer.path());
  const JSON_Pointer moved(std::move(pointer));
  EXPECT_STREQ("/text", moved.path());
}

}  // namespace
}  // namespace json_spirit
