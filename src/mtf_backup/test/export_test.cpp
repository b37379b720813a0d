// What an export makes of files that are not whole, of their further names, and what it reports.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "kolt/posix_fd.h"
#include "mtf/core/byte_source.h"
#include "mtf/core/set_reader.h"
#include "mtf_backup/mtf_export.h"
#include "mtf_backup/test/mover_fixture.h"

namespace {

using MTF::Set_Item;
using MTF_BACKUP::EXPORT_MTF;
using MTF_BACKUP::EXPORT_TAR;
using test_support::Log_Capture;

class Export : public mover_test::Mover_Fixture {
 protected:
  MTF::Error_Code run(MTF_BACKUP::Export_Form form) {
    const Posix_Fd file(::open(file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    handler_ = new mover_test::Test_Handler;
    kept_handler_ = MTF::Event_Handler_var(handler_);
    MTF_Export run(kept_handler_);
    run.channel_factory(make_channels(nullptr));
    run.form(form);
    run.output(file.get());
    const MTF::Error_Code code = run.run("volume/0000000001.1");
    EXPECT_TRUE(run.complete());
    entries_ = run.entries();
    left_out_ = run.left_out();
    return code;
  }

  /// All that is met on the exported medium, up to its end.
  std::vector<Set_Item> items() const {
    struct Source : MTF::Byte_Source {
      ssize_t read(uint64_t offset, char* to, size_t n) override {
        return offset < bytes.size() ? static_cast<ssize_t>(bytes.copy(to, n, offset)) : 0;
      }
      std::string bytes;
    } source;
    source.bytes = test_support::read_file(file_);
    MTF::Set_Reader reader(source);
    MTF::Set_Header header;
    EXPECT_TRUE(reader.read_header(header)) << reader.error();
    std::vector<Set_Item> items;
    do {
      items.emplace_back();
      EXPECT_TRUE(reader.next(items.back())) << reader.error();
    } while (items.back().type != Set_Item::END && !HasFailure());
    return items;
  }
  const std::string file_ = dir_ / "exported";
  uint64_t entries_ = 0;
  uint64_t left_out_ = 0;
};

TEST_F(Export, A_file_that_became_shorter_has_its_note_on_the_medium_and_is_named) {
  const std::string path = write("a", "some text");
  {
    Log_Capture log;
    ASSERT_TRUE(back_up({.hook = once("read", "a", [&] { ASSERT_EQ(0, truncate(path.c_str(), 4)); })}));
  }
  for (const auto form : {EXPORT_TAR, EXPORT_MTF}) {
    Log_Capture log;
    EXPECT_EQ(run(form), MTF::E_OK);
    EXPECT_TRUE(
        log.has(LM_WARNING, path + " became shorter while it was read: from byte 4 on it is filled with zeros.\n"))
        << log.all();
  }
  const std::vector<Set_Item> met = items();
  ASSERT_GE(met.size(), 2u);
  const Set_Item& note = met[met.size() - 2];
  EXPECT_EQ(note.type, Set_Item::DAMAGE);
  EXPECT_EQ(note.damage, MTF::FD_LENGTH_CHANGED);
  EXPECT_EQ(note.valid_size, 4u);
  EXPECT_EQ(met.back().corrupt_files, 1u);
}

TEST_F(Export, Further_names_of_a_file_that_is_left_out_are_left_out) {
  write("bad", noise(1000));
  write("c", noise(3 << 20));  // what is below lies in another frame
  write("sub/good", "good");
  std::filesystem::create_hard_link(source_ + "/bad", source_ + "/sub/other");
  ASSERT_TRUE(back_up());
  std::string& medium = pool_->objects.at("volume/0000000001.1/channel-000.mtf");
  medium[1000] = static_cast<char>(medium[1000] ^ 1);
  for (const auto form : {EXPORT_TAR, EXPORT_MTF}) {
    Log_Capture log;
    EXPECT_EQ(run(form), MTF::E_CORRUPT);
    EXPECT_TRUE(log.has(LM_WARNING, source_ + "/sub/other is left out: the file that it is a name of is left out.\n"))
        << log.all();
    EXPECT_EQ(entries_, 2u) << "sub and sub/good";
    EXPECT_EQ(left_out_, 4u) << "the root, bad, c and sub/other";
  }
  for (const Set_Item& item : items()) EXPECT_NE(item.entry.path, "sub/other");
}

TEST_F(Export, Holes_and_further_names_count_as_done) {
  write("a", "data");
  std::filesystem::resize_file(source_ + "/a", 1 << 30);
  write("b", noise(1000));
  std::filesystem::create_hard_link(source_ + "/b", source_ + "/c");
  ASSERT_TRUE(back_up());
  ASSERT_EQ(run(EXPORT_TAR), MTF::E_OK);
  const auto reports = handler_->reports();
  ASSERT_FALSE(reports.empty());
  EXPECT_EQ(reports.back().processed, (uint64_t(1) << 30) + 2000);
  EXPECT_EQ(reports.back().total, reports.back().processed);
}

}  // namespace
