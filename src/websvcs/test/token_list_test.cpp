#include "websvcs/token_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>

#include "support/log_capture.h"
#include "support/temp_dir.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr char first[] = "first-token-0123456789";
constexpr char second[] = "second.token~/+=_9876543210";

class Token_List_Test : public testing::Test {
 protected:
  void write(const std::string& text, mode_t mode = 0600) {
    const std::string fresh = dir_.write("fresh", text);
    ASSERT_EQ(0, chmod(fresh.c_str(), mode));
    ASSERT_EQ(0, std::rename(fresh.c_str(), path_.c_str()));
  }
  int load() {
    list_.emplace(path_);
    return list_->load();
  }
  unsigned check(const std::string& token) { return list_->check(digest_of(token)); }

  const test_support::Temp_Dir dir_;
  const std::string path_ = dir_ / "tokens";
  test_support::Log_Capture log_;
  std::optional<Token_List> list_;
};

TEST_F(Token_List_Test, EachLineIsATokenAndCommentsAreNone) {
  write(std::string("# requesters\n\n") + first + "\n  \n" + second + " \r\n#" + first + "x\n");
  ASSERT_EQ(0, load()) << log_.all();
  EXPECT_EQ(200u, check(first));
  EXPECT_EQ(200u, check(second));
  for (const std::string& token :
       {std::string(), std::string("#"), first + std::string("x"), std::string(first).substr(1),
        std::string("first-token-012345678"), first + std::string("\n"), std::string("# requesters")}) {
    EXPECT_EQ(401u, check(token)) << token;
  }
}

TEST_F(Token_List_Test, LastLineNeedsNoEnd) {
  write(first);
  ASSERT_EQ(0, load());
  EXPECT_EQ(200u, check(first));
}

TEST_F(Token_List_Test, FileWithWhatIsNoTokenIsRefusedAsAWhole) {
  const std::pair<const char*, const char*> cases[] = {
      {"first-token-0123456789\nshort\n", "line 2 of '%' is shorter than 16 characters.\n"},
      {"two words of a line\n", "line 1 of '%' is no token.\n"},
      {"token=\"first-token-0123456789\"\n", "line 1 of '%' is no token.\n"},
      {"\n# nothing\n", "'%' holds no token.\n"},
      {"", "'%' holds no token.\n"}};
  for (auto [text, why] : cases) {
    log_.clear();
    write(text);
    EXPECT_EQ(-1, load());
    std::string line = std::string("No tokens: ") + why;
    line.replace(line.find('%'), 1, path_);
    EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(line));
  }
  EXPECT_THAT(log_.all(), Not(HasSubstr("first-token")));
}

TEST_F(Token_List_Test, FileThatOthersMayReadIsRefused) {
  write(first, 0644);
  EXPECT_EQ(-1, load());
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(HasSubstr("is open to others")));
}

TEST_F(Token_List_Test, NewFileCountsAtOnce) {
  write(first);
  ASSERT_EQ(0, load());
  write(second);
  EXPECT_EQ(401u, check(first));
  EXPECT_EQ(200u, check(second));
  EXPECT_THAT(log_.texts(LM_INFO), ElementsAre("'" + path_ + "' has changed: 1 tokens.\n"));
}

TEST_F(Token_List_Test, NobodyIsLetInByAFileThatIsBrokenOrGone) {
  write(first);
  ASSERT_EQ(0, load());
  std::remove(path_.c_str());
  EXPECT_EQ(503u, check(first));
  EXPECT_EQ(503u, check(first));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(HasSubstr("No token is accepted: '" + path_ + "' cannot be read")));
  write(std::string(first) + "\nshort\n");
  EXPECT_EQ(503u, check(first));
  write(first, 0644);
  EXPECT_EQ(503u, check(first));
  EXPECT_THAT(log_.texts(LM_ERROR), SizeIs(3));
  write("");
  EXPECT_EQ(401u, check(first)) << "no token any more";
  write(first);
  EXPECT_EQ(200u, check(first));
}

}  // namespace
