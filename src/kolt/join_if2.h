#pragma once

/**
 * Writes the elements of a range with a separator between them.
 *
 * @param fn  fn(stream, element) writes one element and tells whether it wrote anything: no separator follows one that
 *            did not.
 * @return the stream.
 */
template <typename Range, typename Stream, typename Separator, typename Function>
Stream& join_if2(const Range& range, Stream& stream, const Separator& separator, Function fn) {
  bool last = false;
  for (const auto& element : range) {
    if (last) stream << separator;
    last = fn(stream, element);
  }
  return stream;
}
