#pragma once

#include <stdexcept>

#include "json_spirit/extractor_bases.h"
#include "json_spirit/json_pointer.h"

namespace json_spirit {

/**
 * Chained reads by path, below a root that can be moved about in the document @a Doc, a reference to a Value or Object.
 *
 * A destination is what JSON_Pointer::get() takes, and keeps what it held if there is nothing to read. With FG_THROW
 * that throws std::domain_error. A chain whose root could not be moved is broken: its reads touch nothing, until
 * chroot_abs() or no_chroot().
 */
template <typename Doc>
class JSON_Pointer_Extractor : public Callbackable_T<JSON_Pointer_Extractor<Doc>>,
                               public Flaggable_T<JSON_Pointer_Extractor<Doc>>,
                               public Container_Loader {
  typedef JSON_Pointer_Extractor Self;
  typedef std::conditional_t<std::is_const_v<std::remove_reference_t<Doc>>, const Value, Value> Node;

 public:
  JSON_Pointer_Extractor(Doc doc, Flags flags) : doc_(doc), flags_(flags) {}

  using Callbackable_T<Self>::operator();
  using Flaggable_T<Self>::operator();

  template <typename Dest>
  requires(!std::invocable<Dest&, const Value&> && !Loadable<Dest>) Self& operator()(const String_type& key, Dest& dest,
                                                                                     Flags flags) {
    read(key, dest, flags);
    return *this;
  }

  template <Loadable T>
  Self& operator()(const String_type& key, T& dest, Flags flags) {
    const Array* array = nullptr;
    read(key, array, flags);
    if (array) this->load(*array, dest);
    return *this;
  }

  /// Moves the root down to @a key, which counts from the root so far. A broken chain stays broken.
  Self& chroot(const String_type& key, Flags flags) {
    if (is_broken(key, flags)) return *this;
    Node* root = nullptr;
    read(key, root, flags);
    if (!root) {
      flags_ |= FG_BRK_UNT_CHROOT;
      return *this;
    }
    flags_ &= ~Flags{FG_BRK_UNT_CHROOT};
    curr_ = root;
    curr_path_ += key;
    return *this;
  }
  Self& chroot(const String_type& key) { return chroot(key, flags_); }
  Self& chroot(const String_type& key, bool throwable) { return chroot(key, policy(throwable)); }

  /// Makes the document the root again, and mends a broken chain.
  Self& no_chroot() {
    flags_ &= ~Flags{FG_BRK_UNT_CHROOT};
    curr_ = nullptr;
    curr_path_.clear();
    return *this;
  }

  /// chroot() with a @a key that counts from the document.
  Self& chroot_abs(const String_type& key, Flags flags) { return no_chroot().chroot(key, flags); }
  Self& chroot_abs(const String_type& key) { return no_chroot().chroot(key); }
  Self& chroot_abs(const String_type& key, bool throwable) { return no_chroot().chroot(key, throwable); }

 private:
  friend Callbackable_T<Self>;
  friend Flaggable_T<Self>;

  static Flags policy(bool throwable) { return throwable ? FG_THROW : FG_NOTHROW; }

  template <typename Dest>
  void read(const String_type& key, Dest& dest, Flags flags) {
    if (is_broken(key, flags)) return;
    pointer_.path(key.c_str(), false);
    const bool found = curr_ ? pointer_.get(*curr_, dest) : pointer_.get(doc_, dest);
    if (!found && (flags & FG_THROW)) throw_missing(key);
  }
  void find_value(const String_type& key, const Value*& value, Flags flags) { read(key, value, flags); }

  bool is_broken(const String_type& key, Flags flags) const {
    if (!(flags_ & FG_BRK_UNT_CHROOT)) return false;
    if (flags & FG_THROW) throw_missing(key);
    return true;
  }

  String_type abs_path(const String_type& key) const { return curr_path_ + key; }

  [[noreturn]] void throw_missing(const String_type& key) const {
    throw std::domain_error("JSON Pointer path '" + abs_path(key) + "' not exist in JSON!");
  }

  JSON_Pointer pointer_;
  Doc doc_;
  String_type curr_path_;  // where curr_ lies in the document
  Node* curr_ = nullptr;   // the root; null: the document
  Flags flags_;
};

}  // namespace json_spirit
