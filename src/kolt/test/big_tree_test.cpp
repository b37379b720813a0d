// Trees that would take long on a disk: they lie in the memory file system of the sandbox.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "kolt/dir_size.h"
#include "kolt/rm_all.h"
#include "kolt/test/deep_tree.h"

namespace {

constexpr char root[] = "/var/cache/tree";

/// Runs @a work with a stack of 256 KiB and few descriptors, which a walk that keeps a frame or a descriptor for each
/// level would use up.
void run_with_small_limits(const std::function<void()>& work) {
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit few = before;
  few.rlim_cur = 64;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
  pthread_t thread;
  const auto body = [](void* argument) -> void* {
    (*static_cast<const std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, body, const_cast<std::function<void()>*>(&work)), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

void make_wide_directory(int entries) {
  for (int i = 0; i < entries; ++i) {
    const std::string name = root + std::string("/") + std::string(200, 'n') + std::to_string(i);
    const Posix_Fd file(open(name.c_str(), O_CREAT | O_WRONLY, 0644));
    ASSERT_EQ(write(file.get(), "x", 1), 1);
  }
}

TEST(Big_Tree, DepthCostsNeitherStackNorDescriptors) {
  ASSERT_EQ(mkdir(root, 0755), 0);
  make_deep_tree(root, "d", 10000);
  ACE_OFF_T size = 0;
  bool removed = false;
  run_with_small_limits([&] {
    size = dir_size(root);
    removed = rm_all(root);
  });
  EXPECT_EQ(size, 50000);
  EXPECT_TRUE(removed);
  EXPECT_FALSE(std::filesystem::exists(root));
}

TEST(Big_Tree, WideDirectoryIsReadAndEmptiedWhole) {
  ASSERT_EQ(mkdir(root, 0755), 0);
  make_wide_directory(10000);
  EXPECT_EQ(dir_size(root), 10000);
  EXPECT_TRUE(rm_all(root));
  EXPECT_FALSE(std::filesystem::exists(root));
}

}  // namespace
