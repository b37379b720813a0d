#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include <boost/variant/recursive_wrapper_fwd.hpp>

#include "json_spirit/value_fwd.h"

/**
 * How an Object or an Array lies in the variant of a Value: behind one pointer, which moves.
 *
 * Boost's own recursive wrapper makes a new container for every move, and a document moves each of its containers many
 * times while it is built. Specialised for our two containers, the wrapper keeps its name, so that boost::variant
 * unwraps it as ever.
 */
namespace json_spirit {

/// An empty container isn't made before somebody looks at it; half of all containers that a Kubernetes API server sends
/// are empty. Looking counts as reading: many threads may do it at once. A box that was moved from is empty.
template <typename T>
class Variant_Box {
 public:
  typedef T type;

  Variant_Box() noexcept : p_(nullptr) {}
  Variant_Box(const T& value) : p_(value.empty() ? nullptr : new T(value)) {}
  Variant_Box(T&& value) : p_(value.empty() ? nullptr : new T(std::move(value))) {}
  Variant_Box(const Variant_Box& other) : p_(other.copy()) {}
  Variant_Box(Variant_Box&& other) noexcept : p_(other.p_.exchange(nullptr, std::memory_order_relaxed)) {}
  ~Variant_Box() { delete p_.load(std::memory_order_relaxed); }

  Variant_Box& operator=(const Variant_Box& other) { return *this = Variant_Box(other); }
  Variant_Box& operator=(const T& value) { return *this = Variant_Box(value); }
  Variant_Box& operator=(T&& value) { return *this = Variant_Box(std::move(value)); }
  Variant_Box& operator=(Variant_Box&& other) noexcept {
    swap(other);
    return *this;
  }

  void swap(Variant_Box& other) noexcept {
    p_ = other.p_.exchange(p_.load(std::memory_order_relaxed), std::memory_order_relaxed);
  }

  T& get() { return *get_pointer(); }
  const T& get() const { return *get_pointer(); }
  T* get_pointer() { return made(); }
  const T* get_pointer() const { return made(); }

 private:
  T* copy() const {
    const T* p = p_.load(std::memory_order_acquire);
    return p && !p->empty() ? new T(*p) : nullptr;
  }

  T* made() const {
    T* p = p_.load(std::memory_order_acquire);
    if (p) [[likely]]
      return p;
    std::unique_ptr<T> empty(new T());
    return p_.compare_exchange_strong(p, empty.get(), std::memory_order_acq_rel) ? empty.release() : p;
  }

  mutable std::atomic<T*> p_;
};

}  // namespace json_spirit

namespace boost {

template <>
class recursive_wrapper<json_spirit::Object> : public json_spirit::Variant_Box<json_spirit::Object> {
  using json_spirit::Variant_Box<json_spirit::Object>::Variant_Box;
};

template <>
class recursive_wrapper<json_spirit::Array> : public json_spirit::Variant_Box<json_spirit::Array> {
  using json_spirit::Variant_Box<json_spirit::Array>::Variant_Box;
};

template <>
struct is_nothrow_move_constructible<recursive_wrapper<json_spirit::Object>> : true_type {};

template <>
struct is_nothrow_move_constructible<recursive_wrapper<json_spirit::Array>> : true_type {};

}  // namespace boost
