#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "kolt/export.h"

/// One window of the local day. Both bounds belong to it.
struct Rate_Control_Entry {
  unsigned int start_time = 0;           ///< second of the day
  unsigned int end_time = 0;             ///< second of the day
  std::size_t max_bytes_per_second = 0;  ///< 0: no limit
};

/// The bandwidth limits of a job.
struct TESSARIN_API Rate_Limits {
  typedef std::vector<Rate_Control_Entry> Entries_Type;

  static const std::string dest_key;  ///< JSON key of dest_rate_limits
  static const std::string src_key;   ///< JSON key of src_rate_limits

  Entries_Type dest_rate_limits;
  Entries_Type src_rate_limits;

  /**
   * Reads both arrays from @a obj, each by its key. One that is absent, or no array, leaves its limits as they are.
   * What a broken array leaves, and its log line, the converter tells; it does not hinder the other array.
   *
   * @param is_lexical_time  whether the bounds are texts, as in lexical_time_array_to_rate_entries().
   */
  void from_array_in_object(const json_spirit::Object& obj, bool is_lexical_time);

  /// The same with a converter `bool (const json_spirit::Array&, Entries_Type&)`, whose result is ignored.
  template <typename Converter>
  void from_object(const json_spirit::Object& obj, Converter converter) {
    if (const json_spirit::Array* array = json_spirit::object_get_array(obj, dest_key))
      converter(*array, dest_rate_limits);
    if (const json_spirit::Array* array = json_spirit::object_get_array(obj, src_key))
      converter(*array, src_rate_limits);
  }

  /// Shares the limits out over channels: each is divided by @a channels, and is at least 1 where it was not 0. 0 or 1
  /// channels change nothing.
  void set_rate_limits_by_channels(std::size_t channels);

  /// The limits of the job as a whole: as they were before they were first shared out.
  Rate_Limits of_job() const { return of_job_ ? *of_job_ : *this; }

 private:
  std::shared_ptr<const Rate_Limits> of_job_;  // null: they were not shared out
};

/**
 * Reads windows from objects with the numbers start_time, end_time (seconds of the day) and max_bytes_per_second.
 *
 * A window that passes midnight becomes two. @a entries is cleared first.
 *
 * @return false if an element is broken, with one LM_ERROR line "Failed to parse rate control entries: %s.\n"; the
 *         entries before it stay, those after it are not read.
 */
TESSARIN_API bool array_to_rate_entries(const json_spirit::Array& array, Rate_Limits::Entries_Type& entries);

/**
 * The same with the bounds as texts of a relative time; one that cannot be understood counts as 0.
 *
 * The windows are added to what @a entries holds; on failure it is cleared.
 */
TESSARIN_API bool lexical_time_array_to_rate_entries(const json_spirit::Array& array,
                                                     Rate_Limits::Entries_Type& entries);
