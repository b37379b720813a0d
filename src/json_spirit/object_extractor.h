#pragma once

#include "json_spirit/extractor_bases.h"

/// Chained reads of the members of one object.
namespace json_spirit {

/// The required read of an integer into a T, by its low bits.
template <Integral T, bool Signed>
struct Integral_Getter {
  static T get(const Object& obj, const String_type& key) {
    if constexpr (Signed)
      return static_cast<T>(object_get_int64_or_throw(obj, key));
    else
      return static_cast<T>(object_get_uint64_or_throw(obj, key));
  }
  static T get(const Value& value) { return static_cast<T>(value.get_uint64()); }
};

/// @return whether @a dest was read; if not, it is untouched. @throw Type_Error instead, if @a throwable
template <Integral T>
bool object_get_may_throw(const Object& obj, const String_type& key, T& dest, bool throwable) {
  if (!throwable) return object_get(obj, key, dest);
  dest = Integral_Getter<T, std::is_signed_v<T>>::get(obj, key);
  return true;
}

/**
 * Destinations by value: a copy if the key is there. Without FG_THROW a destination keeps what it held if the key is
 * absent or of another kind; with it such a key throws.
 */
template <typename Self, bool Move>
class Object_Value_Extractor : public Container_Loader {
 public:
  Self& operator()(const String_type& key, String_type& dest, Flags flags) {
    if (flags & FG_THROW)
      dest = object_get_str_or_throw(obj(), key);
    else
      object_get(obj(), key, dest);
    return self();
  }

  Self& operator()(const String_type& key, bool& dest, Flags flags) {
    if (flags & FG_THROW)
      dest = object_get_bool_or_throw(obj(), key);
    else
      object_get(obj(), key, dest);
    return self();
  }

  template <Integral T>
  Self& operator()(const String_type& key, T& dest, Flags flags) {
    object_get_may_throw(obj(), key, dest, flags & FG_THROW);
    return self();
  }

  /// Takes the array out of the object.
  Self& operator()(const String_type& key, Array& dest, Flags flags) requires Move {
    if (flags & FG_THROW)
      dest = std::move(object_get_array_or_throw(obj(), key));
    else if (Array* array = object_get_array(obj(), key))
      dest = std::move(*array);
    return self();
  }

  template <Loadable T>
  Self& operator()(const String_type& key, T& dest, Flags flags) {
    if (flags & FG_THROW)
      load(object_get_array_or_throw(std::as_const(obj()), key), dest);
    else if (const Array* array = object_get_array(std::as_const(obj()), key))
      load(*array, dest);
    return self();
  }

 private:
  Self& self() { return static_cast<Self&>(*this); }
  auto& obj() { return self().obj_; }
};

/**
 * Destinations by pointer: the address of the member, with no copy. Without FG_THROW a key that is absent or of another
 * kind makes the pointer null, whatever it held. @a Const: only pointers to const can be had.
 */
template <typename Self, bool Const>
class Object_Pointer_Extractor {
 public:
  Self& operator()(const String_type& key, const String_type*& dest, Flags flags) {
    dest = flags & FG_THROW ? &object_get_str_or_throw(obj(), key) : object_get_str(obj(), key);
    return self();
  }
  Self& operator()(const String_type& key, const Object*& dest, Flags flags) {
    dest = flags & FG_THROW ? &object_get_object_or_throw(obj(), key) : object_get_object(obj(), key);
    return self();
  }
  Self& operator()(const String_type& key, const Array*& dest, Flags flags) {
    dest = flags & FG_THROW ? &object_get_array_or_throw(obj(), key) : object_get_array(obj(), key);
    return self();
  }

  Self& operator()(const String_type& key, String_type*& dest, Flags flags) requires(!Const) {
    dest = flags & FG_THROW ? &object_get_str_or_throw(obj(), key) : object_get_str(obj(), key);
    return self();
  }
  Self& operator()(const String_type& key, Object*& dest, Flags flags) requires(!Const) {
    dest = flags & FG_THROW ? &object_get_object_or_throw(obj(), key) : object_get_object(obj(), key);
    return self();
  }
  Self& operator()(const String_type& key, Array*& dest, Flags flags) requires(!Const) {
    dest = flags & FG_THROW ? &object_get_array_or_throw(obj(), key) : object_get_array(obj(), key);
    return self();
  }

 private:
  Self& self() { return static_cast<Self&>(*this); }
  auto& obj() { return self().obj_; }
};

/// The extractor over an @a Obj, which is a reference or, to own the object, a plain type.
template <typename Self, typename Obj, bool Move>
class Object_Extractor_T : public Object_Value_Extractor<Self, Move>,
                           public Object_Pointer_Extractor<Self, std::is_const_v<std::remove_reference_t<Obj>>>,
                           public Callbackable_T<Self>,
                           public Flaggable_T<Self> {
  typedef Object_Value_Extractor<Self, Move> By_Value;
  typedef Object_Pointer_Extractor<Self, std::is_const_v<std::remove_reference_t<Obj>>> By_Pointer;

 public:
  Object_Extractor_T(Obj&& obj, Flags flags) : obj_(std::forward<Obj>(obj)), flags_(flags) {}

  using By_Value::operator();
  using By_Pointer::operator();
  using Callbackable_T<Self>::operator();
  using Flaggable_T<Self>::operator();

 protected:
  friend By_Value;
  friend By_Pointer;
  friend Callbackable_T<Self>;
  friend Flaggable_T<Self>;

  void find_value(const String_type& key, const Value*& value, Flags flags) {
    value = object_get_value(std::as_const(obj_), key);
    if (!value && (flags & FG_THROW)) throw Type_Error("JSON member '" + key + "' is missing");
  }

  Obj obj_;
  Flags flags_;
};

class Const_Object_Extractor : public Object_Extractor_T<Const_Object_Extractor, const Object&, false> {
  using Object_Extractor_T::Object_Extractor_T;
};

class Object_Extractor : public Object_Extractor_T<Object_Extractor, Object&, false> {
  using Object_Extractor_T::Object_Extractor_T;
};

/// Owns the object, and must outlive every pointer that was read through it.
class Object_Move_Extractor : public Object_Extractor_T<Object_Move_Extractor, Object, true> {
  using Object_Extractor_T::Object_Extractor_T;
};

}  // namespace json_spirit
