#pragma once

#include <concepts>
#include <cstddef>
#include <iterator>
#include <type_traits>
#include <utility>

#include "json_spirit/json_spirit_value.h"

/**
 * Lazy ranges over those elements of an Array, or members of an Object, that are of one kind:
 *
 *     for (const Object& pod : items | get_obj) ...
 *     for (auto [key, text] : labels | get_str) ...
 *
 * Order stays and nothing is copied. The array or object outlives the range; if it is an rvalue the range owns it and
 * hands its elements out as rvalues.
 */
namespace json_spirit {

/// Whether a value, or that of a member, is of the kind @a type.
struct Type_Checker {
  bool operator()(const Value& value) const { return value.type() == type; }
  bool operator()(const Object::value_type& member) const { return (*this)(member.second); }

  Value_type type;
};

template <typename V>
concept Value_Access = std::same_as<std::remove_cvref_t<V>, Value>;
template <typename M>
concept Member_Access = std::same_as<std::remove_cvref_t<M>, Object::value_type>;

/// Reads a value by Self's getter: a reference that is const or not, or an rvalue, as the value is; a copy of a scalar.
/// A member gives the pair of its key and that.
template <typename Self>
struct Converter_T {
  template <Value_Access V>
  decltype(auto) operator()(V&& value) const {
    typedef decltype(Self::get(value)) Result;
    if constexpr (std::is_lvalue_reference_v<Result> && !std::is_lvalue_reference_v<V>)
      return static_cast<std::remove_reference_t<Result>&&>(Self::get(value));
    else
      return static_cast<Result>(Self::get(value));
  }

  template <Member_Access M>
  auto operator()(M&& member) const {
    typedef decltype((*this)(std::forward<M>(member).second)) Result;
    return std::pair<const String_type&, Result>(member.first, (*this)(std::forward<M>(member).second));
  }
};

struct Get_Object_Helper : Converter_T<Get_Object_Helper> {
  static decltype(auto) get(auto& value) { return value.get_obj(); }
};
struct Get_Array_Helper : Converter_T<Get_Array_Helper> {
  static decltype(auto) get(auto& value) { return value.get_array(); }
};
struct Get_String_type_Helper : Converter_T<Get_String_type_Helper> {
  static decltype(auto) get(auto& value) { return value.get_str(); }
};
struct Get_secure_string_Helper : Converter_T<Get_secure_string_Helper> {
  static decltype(auto) get(auto& value) { return value.get_secure_str(); }
};
struct Get_bool_Helper : Converter_T<Get_bool_Helper> {
  static bool get(const Value& value) { return value.get_bool(); }
};
struct Get_int_Helper : Converter_T<Get_int_Helper> {
  static int get(const Value& value) { return value.get_int(); }
};
struct Get_uint_Helper : Converter_T<Get_uint_Helper> {
  static unsigned int get(const Value& value) { return value.get_uint(); }
};
struct Get_int64_Helper : Converter_T<Get_int64_Helper> {
  static std::int64_t get(const Value& value) { return value.get_int64(); }
};
struct Get_uint64_Helper : Converter_T<Get_uint64_Helper> {
  static std::uint64_t get(const Value& value) { return value.get_uint64(); }
};
struct Get_real_Helper : Converter_T<Get_real_Helper> {
  static double get(const Value& value) { return value.get_real(); }
};

inline constexpr Get_Object_Helper get_obj_helper;
inline constexpr Get_Array_Helper get_array_helper;
inline constexpr Get_String_type_Helper get_str_helper;
inline constexpr Get_secure_string_Helper get_secure_str_helper;
inline constexpr Get_bool_Helper get_bool_helper;
inline constexpr Get_int_Helper get_int_helper;
inline constexpr Get_uint_Helper get_uint_helper;
inline constexpr Get_int64_Helper get_int64_helper;
inline constexpr Get_uint64_Helper get_uint64_helper;
inline constexpr Get_real_Helper get_real_helper;

template <typename Pred, typename Conv>
struct Pred_Conv_Pair {
  Pred pred;
  Conv conv;
};

template <typename Conv>
using Kind_Filter = Pred_Conv_Pair<Type_Checker, Conv>;

inline constexpr Kind_Filter<Get_Object_Helper> get_obj{{obj_type}, get_obj_helper};
inline constexpr Kind_Filter<Get_Array_Helper> get_array{{array_type}, get_array_helper};
inline constexpr Kind_Filter<Get_String_type_Helper> get_str{{str_type}, get_str_helper};
inline constexpr Kind_Filter<Get_secure_string_Helper> get_secure_str{{secure_str_type}, get_secure_str_helper};
inline constexpr Kind_Filter<Get_bool_Helper> get_bool{{bool_type}, get_bool_helper};
inline constexpr Kind_Filter<Get_int_Helper> get_int{{int_type}, get_int_helper};
inline constexpr Kind_Filter<Get_uint_Helper> get_uint{{int_type}, get_uint_helper};
inline constexpr Kind_Filter<Get_int64_Helper> get_int64{{int_type}, get_int64_helper};
inline constexpr Kind_Filter<Get_uint64_Helper> get_uint64{{int_type}, get_uint64_helper};
inline constexpr Kind_Filter<Get_real_Helper> get_real{{real_type}, get_real_helper};

/// Walks a container from @a at to @a end and stops at what @a filter lets through. @a Access: how an element is seen.
template <typename Iterator, typename Access, typename Filter>
class Filter_Iterator {
 public:
  typedef std::forward_iterator_tag iterator_category;
  typedef decltype(std::declval<const Filter&>().conv(std::declval<Access>())) reference;
  typedef std::remove_cvref_t<reference> value_type;
  typedef std::ptrdiff_t difference_type;
  typedef void pointer;

  Filter_Iterator() = default;
  Filter_Iterator(Iterator at, Iterator end, const Filter& filter) : at_(at), end_(end), filter_(&filter) { settle(); }

  reference operator*() const { return filter_->conv(static_cast<Access>(*at_)); }
  Filter_Iterator& operator++() {
    ++at_;
    settle();
    return *this;
  }
  Filter_Iterator operator++(int) {
    Filter_Iterator before = *this;
    ++*this;
    return before;
  }
  friend bool operator==(const Filter_Iterator& a, const Filter_Iterator& b) { return a.at_ == b.at_; }

 private:
  void settle() {
    while (at_ != end_ && !filter_->pred(*at_)) ++at_;
  }

  Iterator at_{}, end_{};
  const Filter* filter_ = nullptr;
};

/// @a Range is a reference to the container or, if the range owns it, its plain type.
template <typename Range, typename Filter>
class Filtered_Range {
  typedef decltype(std::declval<std::remove_reference_t<Range>&>().begin()) Base;
  typedef std::conditional_t<std::is_reference_v<Range>, decltype(*std::declval<Base>()),
                             std::remove_reference_t<decltype(*std::declval<Base>())>&&>
      Access;

 public:
  typedef Filter_Iterator<Base, Access, Filter> iterator;
  typedef iterator const_iterator;

  Filtered_Range(Range&& range, const Filter& filter) : range_(std::forward<Range>(range)), filter_(filter) {}

  iterator begin() { return {range_.begin(), range_.end(), filter_}; }
  iterator end() { return {range_.end(), range_.end(), filter_}; }
  iterator begin() const requires std::is_reference_v<Range> { return {range_.begin(), range_.end(), filter_}; }
  iterator end() const requires std::is_reference_v<Range> { return {range_.end(), range_.end(), filter_}; }
  bool empty() { return begin() == end(); }

 private:
  Range range_;
  const Filter& filter_;
};

template <typename T>
concept Json_Range = std::same_as<std::remove_cvref_t<T>, Array> || std::same_as<std::remove_cvref_t<T>, Object>;

template <Json_Range Range, typename Conv>
Filtered_Range<Range, Kind_Filter<Conv>> operator|(Range&& range, const Kind_Filter<Conv>& filter) {
  return {std::forward<Range>(range), filter};
}

}  // namespace json_spirit
