#include "failing_new.h"

#include <atomic>
#include <new>

namespace {

std::atomic<std::size_t> failing_size{0};
std::atomic<int> failed{0};
std::atomic<std::size_t> largest{0};

}  // namespace

Failing_New::Failing_New(std::size_t size) {
  failed = 0;
  failing_size = size;
}

Failing_New::~Failing_New() {
  failing_size = 0;
}

int Failing_New::count() const {
  return failed;
}

std::size_t Failing_New::largest_size(const std::function<void()>& code) {
  largest = 0;
  code();
  return largest;
}

// Goes through the throwing form, so that memory checkers see an ordinary allocation.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (size > largest) largest = size;
  if (size != 0 && size == failing_size) {
    ++failed;
    return nullptr;
  }
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
