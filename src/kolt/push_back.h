#pragma once

#include <cstddef>
#include <iterator>

/// Makes room for @a hint more elements, where the container can.
template <typename Container>
void push_back_hint_reserve_helper(Container& container, std::size_t hint) {
  if constexpr (requires { container.reserve(hint); }) container.reserve(container.size() + hint);
}

/// Inserts a whole range at the end of a container. @return the container, so that calls chain.
/// @param hint  the number of elements to make room for, or 0.
template <typename Container, typename Range>
Container& push_back(Container& container, const Range& range, std::size_t hint = 0) {
  if (hint != 0) push_back_hint_reserve_helper(container, hint);
  container.insert(container.end(), std::begin(range), std::end(range));
  return container;
}
