#include "kolt/rand_char.h"

#include <gtest/gtest.h>

#include <cctype>
#include <set>

namespace {

std::set<char> draw(unsigned set) {
  std::set<char> found;
  for (int i = 0; i < 5000; ++i) found.insert(kolt::rand_char(set));
  return found;
}

TEST(Rand_Char, DrawsEveryCharacterOfItsSetAndNoOther) {
  struct {
    unsigned set;
    int (*belongs)(int);
    std::size_t size;
  } const cases[] = {{kolt::RCS_NUM, std::isdigit, 10},   {kolt::RCS_LOWER, std::islower, 26},
                     {kolt::RCS_UPPER, std::isupper, 26}, {kolt::RCS_ALNUM, std::isalnum, 62},
                     {kolt::RCS_ALL, std::isgraph, 94},   {kolt::RCS_LOGO | kolt::RCS_PUNCT, std::ispunct, 32}};
  for (const auto& one : cases) {
    const std::set<char> found = draw(one.set);
    EXPECT_EQ(found.size(), one.size);
    for (const char c : found) EXPECT_TRUE(one.belongs(c)) << c;
  }
}

TEST(Rand_Char, EmptySetGivesNul) {
  EXPECT_EQ(kolt::rand_char(kolt::RCS_EMPTY), '\0');
}

TEST(Rand_Char, SetsAreNumberedAsBits) {
  EXPECT_EQ(kolt::RCS_NUM, 1);
  EXPECT_EQ(kolt::RCS_LOWER, 2);
  EXPECT_EQ(kolt::RCS_UPPER, 4);
  EXPECT_EQ(kolt::RCS_LOGO, 8);
  EXPECT_EQ(kolt::RCS_PUNCT, 16);
}

}  // namespace
