#pragma once

#include <concepts>
#include <type_traits>

#include "ace/Log_Msg.h"

/**
 * @file
 * The one way to check what should never fail.
 *
 * A check that does not hold logs one line at LM_EMERGENCY, with the source text of the examined expression and a stack
 * trace, and leaves the function with the given result. Nothing is thrown and nothing aborts. Where a failure is to be
 * expected, a text of its own at LM_ERROR is the right thing, not these macros.
 *
 * In a caller:
 * @code
 *   bool start(const Object& params) {
 *     Channel_Factory_var channel_factory = make_channel_factory(params);
 *     KOLT_RETURN_IF_NULL(channel_factory, false);   // "Unexpected error in a/b.cpp:12, channel_factory is NULL: ..."
 *     const std::string* type = params | extract<const std::string*>("type");
 *     KOLT_RETURN_IF_EMPTY(type, false);             // "..., type is NULL or empty: ..."
 *     KOLT_RETURN_IF_NOT(obj.is_request(), obj, "JSON-RPC request", -1);  // "..., obj is not JSON-RPC request!"
 *     KOLT_RETURN_IF_NOT_IN("a/b", v.type() == obj_type, v, "object", false);  // "... in a/b:15, v is not object!"
 *     KOLT_DO_IF_NULL(sess_, broken = true);         // logs, runs the statement and goes on
 * @endcode
 *
 * The result of a function without one is left empty: KOLT_RETURN_IF_NULL(val, ). The examined expression is evaluated
 * once, the result only when the check fails.
 */

namespace kolt {

/// Whether a plain or smart pointer, or anything else that tests as a bool, holds nothing.
template <typename Pointer>
bool is_null(const Pointer& pointer) {
  if constexpr (requires {
                  { pointer.null() } -> std::convertible_to<bool>;
                })
    return pointer.null();
  else
    return !static_cast<bool>(pointer);
}

/// Whether a string or container, or a pointer to one, is null or empty. A const char* is a text up to its NUL.
template <typename T>
bool is_null_or_empty(const T& value) {
  if constexpr (std::is_convertible_v<const T&, const char*>) {
    const char* text = value;
    return text == nullptr || *text == '\0';
  } else if constexpr (requires {
                         { value.empty() } -> std::convertible_to<bool>;
                       }) {
    return value.empty();
  } else {
    return is_null(value) || value->empty();
  }
}

}  // namespace kolt

#define KOLT_DO_IF_NULL(expr, code)                                                               \
  do {                                                                                            \
    if (::kolt::is_null(expr)) {                                                                  \
      ACE_ERROR((LM_EMERGENCY, ACE_TEXT("Unexpected error in %N:%l, %C is NULL:\n%?\n"), #expr)); \
      code;                                                                                       \
    }                                                                                             \
  } while (false)

#define KOLT_DO_IF_EMPTY(expr, code)                                                                       \
  do {                                                                                                     \
    if (::kolt::is_null_or_empty(expr)) {                                                                  \
      ACE_ERROR((LM_EMERGENCY, ACE_TEXT("Unexpected error in %N:%l, %C is NULL or empty:\n%?\n"), #expr)); \
      code;                                                                                                \
    }                                                                                                      \
  } while (false)

#define KOLT_RETURN_IF_NULL(expr, result)                                                         \
  do {                                                                                            \
    if (::kolt::is_null(expr)) {                                                                  \
      ACE_ERROR((LM_EMERGENCY, ACE_TEXT("Unexpected error in %N:%l, %C is NULL:\n%?\n"), #expr)); \
      return result;                                                                              \
    }                                                                                             \
  } while (false)

#define KOLT_RETURN_IF_EMPTY(expr, result)                                                                 \
  do {                                                                                                     \
    if (::kolt::is_null_or_empty(expr)) {                                                                  \
      ACE_ERROR((LM_EMERGENCY, ACE_TEXT("Unexpected error in %N:%l, %C is NULL or empty:\n%?\n"), #expr)); \
      return result;                                                                                       \
    }                                                                                                      \
  } while (false)

/// @param ok    what has to hold.
/// @param expr  the expression that is examined; only its source text is used.
/// @param what  what it should be, as a string.
#define KOLT_RETURN_IF_NOT(ok, expr, what, result)                                                    \
  do {                                                                                                \
    if (!(ok)) {                                                                                      \
      ACE_ERROR((LM_EMERGENCY, ACE_TEXT("Unexpected error in %N:%l, %C is not %C!\n"), #expr, what)); \
      return result;                                                                                  \
    }                                                                                                 \
  } while (false)

/// As KOLT_RETURN_IF_NOT, with the path of the unit, without its ending, in place of the source file.
#define KOLT_RETURN_IF_NOT_IN(unit, ok, expr, what, result)                                                           \
  do {                                                                                                                \
    if (!(ok)) {                                                                                                      \
      ACE_ERROR((LM_EMERGENCY, ACE_TEXT("Unexpected error in %C:%d, %C is not %C!\n"), unit, __LINE__, #expr, what)); \
      return result;                                                                                                  \
    }                                                                                                                 \
  } while (false)
