// Sets that earlier versions wrote: every later one lists and restores them, with the very result that is recorded
// beside them. test/data/golden-sets/README.md tells what they hold, and how they are made anew.
#include "mtf_backup/test/golden_fixture.h"

using namespace mover_test;

namespace {

INSTANTIATE_TEST_SUITE_P(Resources, Golden_Sets, ::testing::ValuesIn(goldens),
                         [](const auto& info) { return std::string(info.param.resource); });

TEST_P(Golden_Sets, AreListedAsRecorded) {
  for (unsigned seq = 1; seq <= GetParam().sets; ++seq)
    EXPECT_EQ(test_support::read_file(listing_file(seq, "catalog")), list_catalog(seq)) << "set " << seq;
}

TEST_P(Golden_Sets, AreRestoredAsRecorded) {
  if (geteuid() != 0) GTEST_SKIP() << "owners come back for root only";
  if (!target_keeps_attributes()) GTEST_SKIP() << "no attributes in " << target_;
  if (GetParam().rare && !target_takes_rare_kinds()) GTEST_SKIP() << "no devices, or attributes, in " << target_;
  for (unsigned seq = 1; seq <= GetParam().sets; ++seq)
    EXPECT_EQ(test_support::read_file(listing_file(seq, "tree")), restored_tree(seq)) << "set " << seq;
}

}  // namespace
