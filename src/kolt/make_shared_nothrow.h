#pragma once

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

/// std::make_shared() that gives null, with errno ENOMEM, where there is no memory.
template <typename T, typename... Args>
std::shared_ptr<T> make_shared_nothrow(Args&&... args) {
  try {
    return std::make_shared<T>(std::forward<Args>(args)...);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return nullptr;
  }
}
