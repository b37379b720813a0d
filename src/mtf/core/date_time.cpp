#include "mtf/core/date_time.h"

#include <chrono>
#include <cstring>

namespace MTF {

namespace {

using std::chrono::sys_days;
using std::chrono::year_month_day;

constexpr int64_t day_seconds = 24 * 60 * 60;

constexpr int64_t start_of_year(int year) {
  return sys_days(std::chrono::year(year) / 1 / 1).time_since_epoch().count() * day_seconds;
}

constexpr int64_t first_second = start_of_year(1);
constexpr int64_t end_second = start_of_year(16384);

}  // namespace

// 40 bits, the most significant first: year 14, month 4, day 5, hour 5, minute 6, second 6.

void put_date_time(char* at, int64_t sec) {
  std::memset(at, 0, date_time_size);
  if (sec < first_second || sec >= end_second) return;
  int64_t day = sec / day_seconds;
  if (sec % day_seconds < 0) --day;
  const year_month_day date{sys_days(std::chrono::days(day))};
  const uint64_t time = static_cast<uint64_t>(sec - day * day_seconds);
  uint64_t bits = static_cast<uint64_t>(static_cast<int>(date.year()));
  bits = bits << 4 | static_cast<unsigned>(date.month());
  bits = bits << 5 | static_cast<unsigned>(date.day());
  bits = bits << 5 | time / 3600;
  bits = bits << 6 | time / 60 % 60;
  bits = bits << 6 | time % 60;
  for (size_t i = 0; i < date_time_size; ++i) at[i] = static_cast<char>(bits >> 8 * (date_time_size - 1 - i));
}

bool get_date_time(const char* at, int64_t& sec) {
  uint64_t bits = 0;
  for (size_t i = 0; i < date_time_size; ++i) bits = bits << 8 | static_cast<unsigned char>(at[i]);
  const year_month_day date{std::chrono::year(static_cast<int>(bits >> 26)),
                            std::chrono::month(static_cast<unsigned>(bits >> 22 & 15)),
                            std::chrono::day(static_cast<unsigned>(bits >> 17 & 31))};
  const int64_t hour = static_cast<int64_t>(bits >> 12 & 31);
  const int64_t minute = static_cast<int64_t>(bits >> 6 & 63);
  const int64_t second = static_cast<int64_t>(bits & 63);
  if (!date.ok() || hour > 23 || minute > 59 || second > 60) return false;
  sec = sys_days(date).time_since_epoch().count() * day_seconds + hour * 3600 + minute * 60 + second;
  return true;
}

}  // namespace MTF
