#include "ctl/human.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <iterator>

namespace ctl {

std::string human_size(uint64_t bytes) {
  static const char* const units[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  char text[32];
  if (bytes < 1024) {
    std::snprintf(text, sizeof text, "%" PRIu64 " B", bytes);
    return text;
  }
  double value = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  // 1023.95 would be printed as "1024.0".
  for (; value >= 1023.95 && unit + 1 < std::size(units); ++unit) value /= 1024;
  std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
  return text;
}

std::string human_duration(uint64_t seconds) {
  const uint64_t hours = seconds / 3600;
  const uint64_t minutes = seconds / 60 % 60;
  char text[40];
  if (hours > 0)
    std::snprintf(text, sizeof text, "%" PRIu64 ":%02" PRIu64 ":%02" PRIu64, hours, minutes, seconds % 60);
  else
    std::snprintf(text, sizeof text, "%" PRIu64 ":%02" PRIu64, minutes, seconds % 60);
  return text;
}

std::string human_time(int64_t seconds) {
  if (seconds == 0) return "-";
  const time_t time = seconds;
  tm local{};
  char text[40];
  if (localtime_r(&time, &local) == nullptr || strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local) == 0)
    return "?";
  return text;
}

}  // namespace ctl
