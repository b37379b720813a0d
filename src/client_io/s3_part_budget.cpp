#include "client_io/s3_part_budget.h"

#include <atomic>

namespace client_io {

namespace {

std::atomic<size_t> taken_of_budget{0};

}  // namespace

bool S3_Part_Budget::take(size_t bytes) {
  size_t taken = taken_of_budget;
  do {
    if (taken != 0 && taken + bytes > size) return false;
  } while (!taken_of_budget.compare_exchange_weak(taken, taken + bytes));
  return true;
}

void S3_Part_Budget::give_back(size_t bytes) {
  taken_of_budget -= bytes;
}

}  // namespace client_io
