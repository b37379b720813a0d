#pragma once

#include <utility>

#include "json_spirit/json_pointer_extractor.h"
#include "json_spirit/object_extractor.h"

/**
 * Chained reads: `extract(obj)("name", name)("size", size)`, `pextract(doc)("/spec/nodeName", node)`.
 *
 * A read never logs. An extractor lives on one thread, in one expression or one block, and the document outlives it and
 * the pointers that were read through it.
 */
namespace json_spirit {

/// Every key is optional.
inline Const_Object_Extractor extract(const Object& obj) {
  return {obj, FG_NOTHROW};
}
inline Object_Extractor extract(Object& obj) {
  return {obj, FG_NOTHROW};
}
inline Object_Move_Extractor extract(Object&& obj) {
  return {std::move(obj), FG_NOTHROW};
}

/// Every key is required: the first one that is absent or of another kind throws Type_Error, and no later one is read.
inline Const_Object_Extractor extract_or_throw(const Object& obj) {
  return {obj, FG_THROW};
}

/// Keys are paths, all of them optional.
inline JSON_Pointer_Extractor<Value&> pextract(Value& doc) {
  return {doc, FG_NOTHROW};
}
inline JSON_Pointer_Extractor<const Value&> pextract(const Value& doc) {
  return {doc, FG_NOTHROW};
}
inline JSON_Pointer_Extractor<Object&> pextract(Object& doc) {
  return {doc, FG_NOTHROW};
}
inline JSON_Pointer_Extractor<const Object&> pextract(const Object& doc) {
  return {doc, FG_NOTHROW};
}

/// The address of the member @a key, a T; null if it is absent or of another kind. T is String_type, Object or Array,
/// const unless @a obj isn't.
template <typename T, typename Obj>
T* object_get_any_ptr(Obj& obj, const String_type& key) {
  T* ptr = nullptr;
  extract(obj)(key, ptr);
  return ptr;
}

}  // namespace json_spirit
