#include "kolt/rate_controller.h"

#include <algorithm>

#include "ace/Log_Msg.h"
#include "json_spirit/extract.h"
#include "kolt/relative_time.h"

using json_spirit::Array;
using json_spirit::extract_or_throw;
using json_spirit::Value;

namespace {

constexpr unsigned int last_second_of_day = 86399;

Rate_Control_Entry number_entry(const Value& element) {
  Rate_Control_Entry entry;
  extract_or_throw(element.get_obj())("start_time", entry.start_time)("end_time", entry.end_time)(
      "max_bytes_per_second", entry.max_bytes_per_second);
  return entry;
}

unsigned int seconds_of(const std::string& text) {
  unsigned int seconds = 0;
  relative_time_to_seconds(text.c_str(), static_cast<int>(text.size()), seconds);  // 0 where it fails
  return seconds;
}

Rate_Control_Entry lexical_entry(const Value& element) {
  Rate_Control_Entry entry;
  std::string start, end;
  extract_or_throw(element.get_obj())("max_bytes_per_second", entry.max_bytes_per_second)("start_time", start)(
      "end_time", end);
  entry.start_time = seconds_of(start);
  entry.end_time = seconds_of(end);
  return entry;
}

void add_window(Rate_Control_Entry entry, Rate_Limits::Entries_Type& entries) {
  if (entry.start_time > entry.end_time) {  // it passes midnight
    entries.push_back({entry.start_time, last_second_of_day, entry.max_bytes_per_second});
    entry.start_time = 0;
  }
  entries.push_back(entry);
}

template <typename Reader>
bool add_windows(const Array& array, Reader reader, Rate_Limits::Entries_Type& entries) {
  for (const Value& element : array) {
    try {
      add_window(reader(element), entries);
    } catch (const std::exception& e) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to parse rate control entries: %C.\n"), e.what()));
      return false;
    }
  }
  return true;
}

void divide(Rate_Limits::Entries_Type& entries, std::size_t channels) {
  for (Rate_Control_Entry& entry : entries)
    if (entry.max_bytes_per_second != 0)
      entry.max_bytes_per_second = std::max<std::size_t>(entry.max_bytes_per_second / channels, 1);
}

}  // namespace

const std::string Rate_Limits::dest_key = "dest_rate_limits";
const std::string Rate_Limits::src_key = "src_rate_limits";

void Rate_Limits::from_array_in_object(const json_spirit::Object& obj, bool is_lexical_time) {
  from_object(obj, is_lexical_time ? lexical_time_array_to_rate_entries : array_to_rate_entries);
}

void Rate_Limits::set_rate_limits_by_channels(std::size_t channels) {
  if (channels < 2) return;
  if (!of_job_) of_job_ = std::make_shared<const Rate_Limits>(*this);
  divide(dest_rate_limits, channels);
  divide(src_rate_limits, channels);
}

bool array_to_rate_entries(const Array& array, Rate_Limits::Entries_Type& entries) {
  entries.clear();
  return add_windows(array, number_entry, entries);
}

bool lexical_time_array_to_rate_entries(const Array& array, Rate_Limits::Entries_Type& entries) {
  const bool good = add_windows(array, lexical_entry, entries);
  if (!good) entries.clear();
  return good;
}
