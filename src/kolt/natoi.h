#pragma once

#include <cerrno>
#include <limits>
#include <type_traits>

/**
 * The decimal number at the start of a text, with an optional sign. Trailing text ends the number without an error.
 *
 * @param beg   the text.
 * @param end   where it ends, or null: then at the first character that is no digit, NUL included.
 * @param eptr  if not null, receives where parsing stopped.
 * @return the number. errno is set on every path: 0; EINVAL, with the result 0, if @a beg is null, there is no digit,
 * or a '-' stands before an unsigned number; ERANGE, with the largest T, if the number does not fit, also if it is
 *         negative.
 */
template <typename T, typename Iter>
T natoi(Iter beg, std::type_identity_t<Iter> end = {}, std::type_identity_t<Iter>* eptr = nullptr) {
  static_assert(std::is_integral_v<T> && !std::is_same_v<T, bool>);

  const auto fail = [](int error, T result) {
    errno = error;
    return result;
  };
  if (eptr != nullptr) *eptr = beg;
  if (beg == Iter() || beg == end || *beg == '\0') return fail(EINVAL, 0);

  Iter p = beg;
  const bool negative = *p == '-';
  if (negative && std::is_unsigned_v<T>) return fail(EINVAL, 0);
  if (negative || *p == '+') ++p;

  const unsigned long long type_max = static_cast<unsigned long long>(std::numeric_limits<T>::max()) + negative;
  const unsigned long long q = type_max / 10;
  const unsigned long long r = type_max % 10;
  const Iter first = p;
  unsigned long long result = 0;
  bool overflow = false;
  for (; p != end; ++p) {
    const unsigned v = static_cast<unsigned char>(*p) - static_cast<unsigned>('0');
    if (v > 9) break;
    overflow = result > q || (result == q && v > r);
    if (overflow) break;
    result = result * 10 + v;
  }
  if (eptr != nullptr) *eptr = p;
  if (overflow) return fail(ERANGE, std::numeric_limits<T>::max());
  if (p == first) return fail(EINVAL, 0);
  return fail(0, static_cast<T>(negative ? 0 - result : result));
}
