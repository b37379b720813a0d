#pragma once

#include <memory>

#include "json_spirit/content.h"

namespace json_spirit {

template <typename T>
concept Json_Root = std::same_as<std::remove_cvref_t<T>, Value> || std::same_as<std::remove_cvref_t<T>, Object> ||
    std::same_as<std::remove_cvref_t<T>, Array>;

/**
 * A path into a document, in the notation of RFC 6901: "/items/0/status/podIP", with "~1" for a slash and "~0" for a
 * tilde inside a token. The empty path is the root.
 *
 * One thread at a time may use a pointer.
 */
class TESSARIN_API JSON_Pointer {
 public:
  /// The empty path.
  JSON_Pointer() : JSON_Pointer("", false, false) {}
  /**
   * @param path see path()
   * @param log an ill-formed path is logged, at LM_ERROR, when it is used. That a path leads nowhere never is.
   */
  JSON_Pointer(const char* path, bool copy, bool log);

  const char* path() const noexcept { return path_; }
  /// The text must live for as long as the pointer is used on it, unless @a copy: then the pointer keeps its own.
  void path(const char* path, bool copy);

  /**
   * Reads what the path leads to.
   *
   * @param root a Value, Object or Array. From an rvalue strings, containers and values are moved out, and null stays.
   * @param dest bool, double, any integer (by its low bits), String_type, secure_string, Object, Array or Value; or a
   *        pointer to one of the last five, or to char: then it is set to the address in the document, which must be
   *        an lvalue and, unless the pointer is to const, not const.
   * @return false, with @a dest untouched, if the path leads nowhere or to a value of another kind.
   */
  template <Json_Root Root, typename Dest>
  bool get(Root&& root, Dest& dest) const;

  /**
   * Stores @a value at the path.
   *
   * Members that are missing on the way are made, as objects; a null on the way becomes an object. In an array an index
   * must be that of an element, or the first free one, for which "-" stands too.
   *
   * @return false, with @a root unchanged, if there is no such place.
   */
  bool set(Value& root, Value value) const;

  /// Takes the String_type, secure_string, Object, Array or Value at the path out into @a dest, and leaves null.
  /// @return as get()
  template <Json_Root Root, typename Dest>
  bool move(Root& root, Dest& dest) const {
    return get(std::move(root), dest);
  }

 private:
  const Value* find(const Value& root) const;
  const Value* find(const Object& root) const;
  const Value* find(const Array& root) const;
  const Value* find_rest(const Value* from, const char* rest) const;

  // One step. A token starts at the pointer and ends before the next slash or at the end of the text.
  const Value* get_object(const Object& object, const char* token) const;
  Value* get_object(Object& object, const char* token) const;
  const Value* get_array(const Array& array, const char* token) const;
  Value* get_array(Array& array, const char* token) const;

  Value* locate(Value& root, const char* last) const;
  bool assign_segment(Value& parent, const char* token, Value&& value) const;
  bool assign_object(Object& parent, const char* token, Value&& value) const;
  bool assign_array(Array& parent, const char* token, Value&& value) const;
  bool assign_root(Value& root, Value&& value) const;

  bool decode(const char* token) const;
  bool well_formed() const;
  void log_ill_formed() const;

  const char* path_;
  const bool log_;
  mutable String_type path_buf_;  // the token at hand, decoded
  std::unique_ptr<char[]> buf_;   // the pointer's own copy of the text, or null
};

/// What an empty path reads from an Object or Array: that itself.
template <typename Root, typename Dest>
bool read_root(Root&& root, Dest& dest) {
  typedef std::remove_cvref_t<Root> Container;
  if constexpr (std::same_as<Dest, Container> || std::same_as<Dest, Value>) {
    dest = std::forward<Root>(root);
    return true;
  } else if constexpr (std::same_as<Dest, const Container*> || std::same_as<Dest, std::remove_reference_t<Root>*>) {
    static_assert(std::is_lvalue_reference_v<Root>);
    dest = &root;
    return true;
  }
  return false;
}

template <Json_Root Root, typename Dest>
bool JSON_Pointer::get(Root&& root, Dest& dest) const {
  typedef std::remove_reference_t<Root> Bare;
  typedef std::conditional_t<std::is_const_v<Bare>, const Value, Value> Found;
  typedef std::conditional_t<std::is_lvalue_reference_v<Root>, Found&, Found&&> Access;
  if constexpr (!std::same_as<std::remove_const_t<Bare>, Value>)
    if (*path_ == '\0') return read_root(std::forward<Root>(root), dest);
  // What is found in a root that isn't const may be changed.
  const auto found = const_cast<Found*>(find(root));
  return found && read_content(static_cast<Access>(*found), dest);
}

}  // namespace json_spirit
