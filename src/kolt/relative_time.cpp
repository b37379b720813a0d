#include "kolt/relative_time.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

namespace {

constexpr std::uint64_t max_seconds = std::numeric_limits<unsigned int>::max();

// Takes the digits at the start of text. False if there are none or the number is beyond every span.
bool take_number(std::string_view& text, std::uint64_t& number) {
  std::size_t count = 0;
  number = 0;
  for (; count < text.size() && text[count] >= '0' && text[count] <= '9'; ++count) {
    number = number * 10 + static_cast<unsigned>(text[count] - '0');
    if (number > max_seconds) return false;
  }
  text.remove_prefix(count);
  return count != 0;
}

// "HH:MM" or "HH:MM:SS"
bool read_clock(std::string_view text, std::uint64_t& seconds) {
  std::uint64_t hours, minutes, rest = 0;
  if (!take_number(text, hours) || !text.starts_with(':')) return false;
  text.remove_prefix(1);
  if (!take_number(text, minutes)) return false;
  if (text.starts_with(':')) {
    text.remove_prefix(1);
    if (!take_number(text, rest)) return false;
  }
  seconds = hours * 3600 + minutes * 60 + rest;
  return text.empty() && minutes < 60 && rest < 60;
}

// Numbers with units, the largest unit first.
bool read_units(std::string_view text, std::uint64_t& seconds) {
  struct Unit {
    char letter;
    unsigned seconds;
  };
  constexpr Unit units[] = {{'d', 86400}, {'h', 3600}, {'m', 60}, {'s', 1}};

  seconds = 0;
  const Unit* unit = std::begin(units);
  do {
    std::uint64_t number;
    if (!take_number(text, number) || text.empty()) return false;
    while (unit != std::end(units) && unit->letter != text.front()) ++unit;
    if (unit == std::end(units)) return false;
    seconds += number * unit->seconds;
    ++unit;
    text.remove_prefix(1);
  } while (!text.empty());
  return true;
}

}  // namespace

bool relative_time_to_seconds(const char* text, int length, unsigned int& seconds) {
  if (text == nullptr) return false;
  const std::string_view whole(text, length < 0 ? std::strlen(text) : static_cast<std::size_t>(length));
  std::uint64_t value = 0;
  if (!read_clock(whole, value) && !read_units(whole, value)) return false;
  if (value > max_seconds) return false;
  seconds = static_cast<unsigned int>(value);
  return true;
}
