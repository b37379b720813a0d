#pragma once

template <typename T>
struct ownership_delete;

/// A deleter for a pointer that may own its array or only borrow it.
template <typename T>
struct ownership_delete<T[]> {
  explicit ownership_delete(bool ownership = true) : ownership_(ownership) {}
  void operator()(T* array) const {
    if (ownership_) delete[] array;
  }

  bool ownership_;
};
