#pragma once

#include <cstddef>
#include <iterator>
#include <memory>

#include <boost/range/iterator_range_core.hpp>

#include "kolt/directory_entry.h"
#include "kolt/directory_reader.h"
#include "kolt/export.h"

template <typename Char>
class Directory_Iterator_T;
typedef Directory_Iterator_T<char> Directory_Iterator;

/**
 * Walks the entries of one directory.
 *
 * @code
 *   for (const auto& e : iterate_directory(dir)) use(e.name, e.stat);
 * @endcode
 *
 * Copies walk the same stream: to advance one advances all. A directory that cannot be opened gives the end iterator at
 * once (errno tells why, and operator! tells it from an empty directory); an empty one gives an iterator that equals
 * it. Nothing throws. Threads: an iterator and its copies belong to one.
 */
template <>
class TESSARIN_API Directory_Iterator_T<char> {
 public:
  typedef std::input_iterator_tag iterator_concept;
  typedef std::forward_iterator_tag iterator_category;
  typedef Directory_Entry_T<char> value_type;
  typedef std::ptrdiff_t difference_type;
  typedef const value_type* pointer;
  typedef const value_type& reference;

  /// The end.
  Directory_Iterator_T() = default;
  /// All entries of @a path. For the last two arguments see Directory_Reader::open().
  Directory_Iterator_T(const char* path, bool flag, reparse_types_t types);
  /// The entries whose name matches the shell pattern @a pattern; null means all.
  Directory_Iterator_T(const char* path, const char* pattern, bool flag, reparse_types_t types);

  reference operator*() const { return handle_->val_; }
  pointer operator->() const { return &handle_->val_; }

  Directory_Iterator_T& operator++();
  /// The copy that is returned stands on the new entry too.
  Directory_Iterator_T operator++(int);

  bool operator==(const Directory_Iterator_T& other) const;
  bool operator!=(const Directory_Iterator_T& other) const { return !(*this == other); }
  /// Whether no directory is open behind this iterator: the end iterator, or opening failed.
  bool operator!() const { return !handle_; }

  /// 0 after a clean end and for an iterator without a directory, else the error that ended the walk.
  int last_error() const { return handle_ ? handle_->reader_.last_error() : 0; }

 private:
  struct handle_t {
    Directory_Entry_T<char> val_;
    Directory_Reader reader_;
    bool done_ = false;
  };

  std::shared_ptr<handle_t> handle_;
};

/// The range from @a begin to the end of its directory.
inline boost::iterator_range<Directory_Iterator> iterate_directory(Directory_Iterator begin) {
  return {std::move(begin), Directory_Iterator()};
}

/// The range of all entries of @a path; empty also if it cannot be opened.
inline boost::iterator_range<Directory_Iterator> iterate_directory(const char* path) {
  return iterate_directory(Directory_Iterator(path, false, 0));
}
