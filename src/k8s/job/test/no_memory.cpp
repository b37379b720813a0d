#include "no_memory.h"

#include <new>

namespace {

thread_local bool no_memory = false;

}  // namespace

No_Memory::No_Memory() {
  no_memory = true;
}
No_Memory::~No_Memory() {
  no_memory = false;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (no_memory) {
    no_memory = false;
    return nullptr;
  }
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
