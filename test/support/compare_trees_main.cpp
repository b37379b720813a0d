// compare-trees LEFT RIGHT: prints every difference of two trees; exit code 0 only when there is none.
#include <cstdio>

#include "support/tree_compare.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: compare-trees LEFT RIGHT\n");
    return 2;
  }
  const test_support::Tree_Report report = test_support::compare_trees(argv[1], argv[2]);
  for (const std::string& difference : report.differences) std::printf("%s\n", difference.c_str());
  if (!report.differences.empty()) {
    std::printf("the trees differ in %zu places, of %zu entries\n", report.differences.size(), report.entries);
    return 1;
  }
  std::printf(
      "%zu entries, %llu bytes: the trees are identical in bytes, types, links, modes, owners, times and xattrs\n",
      report.entries, report.bytes);
  return 0;
}
