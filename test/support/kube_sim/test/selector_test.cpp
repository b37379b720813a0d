#include "support/kube_sim/selector.h"

#include <gtest/gtest.h>

#include "support/kube_sim/status_document.h"

namespace kube_sim {
namespace {

json_spirit::Value document(const char* text) {
  json_spirit::Value value;
  EXPECT_TRUE(json_spirit::loads_json(text, value));
  return value;
}

bool labels_match(const std::string& selector) {
  return Label_Selector(selector).matches(document(R"({"metadata":{"labels":{"a":"1","empty":"","x.io/n":"v"}}})"));
}

TEST(LabelSelector, ComparesForEquality) {
  EXPECT_TRUE(labels_match("a=1"));
  EXPECT_TRUE(labels_match("a==1"));
  EXPECT_FALSE(labels_match("a=2"));
  EXPECT_TRUE(labels_match("x.io/n=v"));
}

TEST(LabelSelector, ComparesWithTheEmptyText) {
  EXPECT_TRUE(labels_match("empty="));
  EXPECT_FALSE(labels_match("a="));
}

TEST(LabelSelector, UnequalHoldsForAbsentLabelsToo) {
  EXPECT_TRUE(labels_match("a!=2"));
  EXPECT_TRUE(labels_match("b!=2"));
  EXPECT_FALSE(labels_match("a!=1"));
}

TEST(LabelSelector, KnowsSets) {
  EXPECT_TRUE(labels_match("a in (1,2)"));
  EXPECT_FALSE(labels_match("a in (2, 3)"));
  EXPECT_TRUE(labels_match("a notin (2)"));
  EXPECT_TRUE(labels_match("b notin (2)"));
  EXPECT_FALSE(labels_match("a notin (1)"));
}

TEST(LabelSelector, AsksForPresence) {
  EXPECT_TRUE(labels_match("a"));
  EXPECT_FALSE(labels_match("b"));
  EXPECT_TRUE(labels_match("!b"));
  EXPECT_FALSE(labels_match("!a"));
}

TEST(LabelSelector, JoinsAllRequirements) {
  EXPECT_TRUE(labels_match("a=1,x.io/n,!b"));
  EXPECT_FALSE(labels_match("a=1,b"));
}

TEST(LabelSelector, MatchesAllWhenEmpty) {
  EXPECT_TRUE(labels_match(""));
}

TEST(LabelSelector, RefusesWhatItCannotRead) {
  for (const char* broken : {"a===1", "a in 1", "a in (1", "=1", "a b", "a=1,,b"}) {
    try {
      Label_Selector selector(broken);
      ADD_FAILURE() << broken;
    } catch (const Refusal& refusal) {
      EXPECT_EQ(refusal.answer.status, 400) << broken;
    }
  }
}

const Resource pods{.version = "v1", .plural = "pods", .kind = "Pod"};

bool fields_match(const std::string& selector) {
  return Field_Selector(selector, pods)
      .matches(document(R"({"metadata":{"name":"p","namespace":"n"},"spec":{"nodeName":"w"},
                            "status":{"phase":"Running"}})"));
}

TEST(FieldSelector, ComparesKnownFields) {
  EXPECT_TRUE(fields_match("metadata.name=p,status.phase=Running"));
  EXPECT_TRUE(fields_match("spec.nodeName==w"));
  EXPECT_TRUE(fields_match("status.phase!=Failed"));
  EXPECT_FALSE(fields_match("metadata.name=q"));
}

TEST(FieldSelector, TakesAnAbsentFieldAsEmpty) {
  EXPECT_TRUE(fields_match("status.podIP="));
  EXPECT_FALSE(fields_match("status.podIP=10.0.0.1"));
}

TEST(FieldSelector, RefusesFieldsOfOtherKinds) {
  EXPECT_THROW(fields_match("involvedObject.name=p"), Refusal);
}

}  // namespace
}  // namespace kube_sim
