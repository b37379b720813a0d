#pragma once

#include <concepts>
#include <type_traits>

#include "json_spirit/content.h"

/// What the extractors of extract.h are made of.
namespace json_spirit {

/// Whether a key that can't be read throws, and whether the chain is broken until its root is set anew.
enum Flag : unsigned int { FG_NOTHROW = 0, FG_THROW = 1, FG_BRK_UNT_CHROOT = 2 };
typedef unsigned int Flags;

/// The form of a read in a chain, with the policy that the extractor has at that point.
template <typename Self>
class Flaggable_T {
 public:
  template <typename Dest>
  Self& operator()(const String_type& key, Dest&& dest) {
    return self()(key, std::forward<Dest>(dest), self().flags_);
  }

  /// Sets the policy for what follows in the chain.
  Self& flags(Flags flags) {
    self().flags_ = flags;
    return self();
  }
  Self& throwable(bool throwable) {
    return flags(throwable ? self().flags_ | FG_THROW : self().flags_ & ~Flags{FG_THROW});
  }

 private:
  Self& self() { return static_cast<Self&>(*this); }
};

/// The destination is a function, which is called with the value if there is one.
template <typename Self>
class Callbackable_T {
 public:
  template <std::invocable<const Value&> Function>
  Self& operator()(const String_type& key, Function&& function, Flags flags) {
    const Value* value = nullptr;
    Self& self = static_cast<Self&>(*this);
    self.find_value(key, value, flags);
    if (value) function(*value);
    return self;
  }
};

/// A container of strings, booleans or numbers, to be filled from an array.
template <typename T>
concept Loadable = requires(T& container, typename T::value_type element) {
  { read_content(std::declval<const Value&>(), element) } -> std::same_as<bool>;
  container.insert(container.end(), element);
}
&&!Addressable<T> && !std::same_as<typename T::value_type, Value> && !std::same_as<typename T::value_type, char>;

class Container_Loader {
 protected:
  /// Adds the elements that are of the container's kind, in order, and passes over the others.
  template <Loadable T>
  static void load(const Array& array, T& dest) {
    for (const Value& value : array) {
      typename T::value_type element;
      if (read_content(value, element)) dest.insert(dest.end(), std::move(element));
    }
  }
};

}  // namespace json_spirit
