#include "json_rpc/json_rpc_id_generator.h"

#include <atomic>

#include "kolt/rand_char.h"

namespace {

constexpr int prefix_length = 12;

std::string random_prefix() {
  std::string prefix;
  for (int i = 0; i < prefix_length; ++i) prefix += kolt::rand_char(kolt::RCS_NUM_LOWER);
  return prefix + '-';
}

}  // namespace

std::string JSON_RPC_Id_Generator::get() {
  static const std::string prefix = random_prefix();
  static std::atomic<unsigned long> count{0};
  return prefix + std::to_string(++count);
}
