#include "client_io/back_off.h"

#include <algorithm>
#include <limits>

#include "kolt/clock.h"

namespace client_io {

using std::chrono::milliseconds;
using std::chrono::seconds;

Back_Off::Back_Off(size_t max_seconds, unsigned longest_wait)
    : max_(std::min<size_t>(max_seconds, std::numeric_limits<int>::max())),
      delays_(1, std::numeric_limits<unsigned>::max(), longest_wait, true) {}

std::optional<milliseconds> Back_Off::next(std::optional<milliseconds> told) {
  const std::chrono::nanoseconds now = kolt::clock().steady();
  if (!start_) start_ = now;
  const milliseconds left = max_ - std::chrono::floor<milliseconds>(now - *start_);
  // "At once" is no answer of a service that is in trouble.
  if (told && told->count() > 0) return *told > left ? std::nullopt : told;
  if (left.count() <= 0) return {};
  return std::min<milliseconds>(seconds(*delays_++), left);
}

}  // namespace client_io
