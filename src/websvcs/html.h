#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Text as it stands in HTML, between tags or in a quoted attribute. What is not UTF-8 or is a control character, but
/// for line ends, is shown as U+FFFD.
std::string html_text(std::string_view text);

/// "1.5 GiB".
std::string html_bytes(uint64_t bytes);

/// "1 h 05 min", "12 s".
std::string html_duration(int64_t milliseconds);

/// "2026-11-21 09:38:18 UTC".
std::string html_time(int64_t milliseconds);
