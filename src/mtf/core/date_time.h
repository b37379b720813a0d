#pragma once

#include <cstddef>
#include <cstdint>

#include "kolt/export.h"

namespace MTF {

constexpr size_t date_time_size = 5;

/// Stores seconds of the epoch as a date and time in UTC. What lies outside the years 1 to 16383 is stored as unknown.
TESSARIN_API void put_date_time(char* at, int64_t sec);
/// False where the date is unknown (all zero) or no date at all.
TESSARIN_API bool get_date_time(const char* at, int64_t& sec);

}  // namespace MTF
