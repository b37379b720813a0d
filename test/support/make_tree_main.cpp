// make-tree DIR FILES BYTES [plain]: fills DIR with a tree for trials and benchmarks; "plain" leaves out special files.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "support/tree_maker.h"

int main(int argc, char** argv) {
  if (argc < 4 || argc > 5 || (argc == 5 && std::strcmp(argv[4], "plain") != 0)) {
    std::fprintf(stderr, "usage: make-tree DIR FILES BYTES [plain]\n");
    return 2;
  }
  test_support::Tree_Options options;
  options.files = std::strtoull(argv[2], nullptr, 10);
  options.bytes = std::strtoull(argv[3], nullptr, 10);
  options.special = argc == 4;
  try {
    test_support::make_tree(argv[1], options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make-tree: %s\n", error.what());
    return 1;
  }
  return 0;
}
