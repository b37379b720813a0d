#pragma once

#include <sstream>
#include <string>

#include "client_io/client_io_base.h"

/// All that a job decides about its storage clients, to compare it.
inline std::string options_text(const Client_IO_Base::Options& options) {
  std::ostringstream text;
  text << options.max_seconds_retry << ' ' << options.resumption_buffer_size << ' ' << options.server_side_dedup << ' '
       << options.compression_method << ' ' << options.compression_level;
  for (const auto& [name, value] : options.extra_options) text << ' ' << name << '=' << value;
  for (const auto* limits : {&options.rate_limits.dest_rate_limits, &options.rate_limits.src_rate_limits})
    for (const Rate_Control_Entry& entry : *limits)
      text << ' ' << entry.start_time << '-' << entry.end_time << ':' << entry.max_bytes_per_second;
  return text.str();
}
