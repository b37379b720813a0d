#include "json_rpc/json_rpc_id_generator.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

namespace {

TEST(JSON_RPC_Id_Generator_Test, GivesEachIdOnce) {
  constexpr int threads = 4, ids = 500;
  std::vector<std::string> given[threads];
  std::vector<std::thread> takers;
  for (auto& mine : given)
    takers.emplace_back([&mine] {
      for (int i = 0; i < ids; ++i) mine.push_back(JSON_RPC_Id_Generator::get());
    });
  std::set<std::string> all;
  for (int i = 0; i < threads; ++i) {
    takers[i].join();
    all.insert(given[i].begin(), given[i].end());
  }
  EXPECT_EQ(all.size(), std::size_t{threads} * ids);
  EXPECT_EQ(all.count(""), 0u);
}

}  // namespace
