#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "kolt/posix_fd.h"

/// Makes directories one below the other, with a file of five bytes in each, however long the path becomes.
/// @return the innermost directory.
inline Posix_Fd make_deep_tree(const std::string& root, const std::string& name, int levels) {
  Posix_Fd dir(open(root.c_str(), O_RDONLY | O_DIRECTORY));
  for (int i = 0; i < levels; ++i) {
    EXPECT_EQ(mkdirat(dir.get(), name.c_str(), 0755), 0);
    dir = Posix_Fd(openat(dir.get(), name.c_str(), O_RDONLY | O_DIRECTORY));
    const Posix_Fd file(openat(dir.get(), "file", O_CREAT | O_WRONLY, 0644));
    EXPECT_EQ(write(file.get(), "12345", 5), 5);
  }
  return dir;
}
