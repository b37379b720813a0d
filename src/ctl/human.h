#pragma once

#include <cstdint>
#include <string>

namespace ctl {

/// A number of bytes for people: "0 B", "1023 B", "1.0 KiB", "12.3 GiB".
std::string human_size(uint64_t bytes);

/// A number of seconds for people: "0:07", "12:34", "1:02:03".
std::string human_duration(uint64_t seconds);

/// A time in seconds since 1970 as local time: "2024-05-31 17:04:59"; "-" for 0.
std::string human_time(int64_t seconds);

}  // namespace ctl
