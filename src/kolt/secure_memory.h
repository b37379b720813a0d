#pragma once

#include <cstring>
#include <map>
#include <memory>
#include <string>

/// memset() that the compiler may not leave out, also when the block is never read again.
inline void* secure_memset(void* block, int value, std::size_t size) {
  if (size != 0) std::memset(block, value, size);
  __asm__ __volatile__("" : : "r"(block) : "memory");
  return block;
}

/// Overwrites a text, also a short one that it keeps inside itself.
inline void secure_wipe(std::string& text) {
  secure_memset(text.data(), 0, text.size());
}

/// The same for the values of a map.
template <typename Key>
void secure_wipe(std::map<Key, std::string>& texts) {
  for (auto& [key, text] : texts) secure_wipe(text);
}

/**
 * The standard allocator, except that a block is overwritten with zeros before it is released.
 *
 * Short texts that a std::basic_string keeps inside itself are never allocated and so are not wiped; who needs that
 * overwrites the object with secure_memset() before it dies.
 */
template <typename T>
class secure_allocator : public std::allocator<T> {
 public:
  secure_allocator() = default;
  template <typename U>
  secure_allocator(const secure_allocator<U>&) noexcept {}

  void deallocate(T* block, std::size_t count) {
    secure_memset(block, 0, count * sizeof(T));
    std::allocator<T>::deallocate(block, count);
  }
};

typedef std::basic_string<char, std::char_traits<char>, secure_allocator<char>> secure_string;
