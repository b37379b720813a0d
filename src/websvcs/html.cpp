#include "websvcs/html.h"

#include <cstdio>
#include <ctime>

#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_value.h"

namespace {

/// As valid UTF-8: what a reader makes of the text as JSON.
std::string as_utf8(std::string_view text) {
  json_spirit::Object holder;
  holder["text"] = std::string(text);
  json_spirit::Value read;
  std::string valid;
  if (json_spirit::loads_json(json_spirit::JSON_Dump(holder, false).str(), read)) {
    json_spirit::object_get(read.get_obj(), "text", valid);
  }
  return valid;
}

bool is_control(char c) {
  return (static_cast<unsigned char>(c) < ' ' && c != '\n') || c == '\x7f';
}

std::string printed(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

}  // namespace

std::string html_text(std::string_view text) {
  std::string html;
  for (const char c : as_utf8(text)) {
    if (c == '&')
      html += "&amp;";
    else if (c == '<')
      html += "&lt;";
    else if (c == '>')
      html += "&gt;";
    else if (c == '"')
      html += "&quot;";
    else if (c == '\'')
      html += "&#39;";
    else if (is_control(c))
      html += "\xef\xbf\xbd";
    else
      html += c;
  }
  return html;
}

std::string html_bytes(uint64_t bytes) {
  static constexpr const char* units[] = {" KiB", " MiB", " GiB", " TiB", " PiB", " EiB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  auto value = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  for (; value >= 1024 && unit + 1 < std::size(units); ++unit) value /= 1024;
  return printed(value < 10 ? "%.1f" : "%.0f", value) + units[unit];
}

std::string html_duration(int64_t milliseconds) {
  const int64_t seconds = milliseconds < 0 ? 0 : milliseconds / 1000;
  char text[64];
  if (seconds < 60)
    std::snprintf(text, sizeof text, "%d s", static_cast<int>(seconds));
  else if (seconds < 3600)
    std::snprintf(text, sizeof text, "%d min %02d s", static_cast<int>(seconds / 60), static_cast<int>(seconds % 60));
  else
    std::snprintf(text, sizeof text, "%lld h %02d min", static_cast<long long>(seconds / 3600),
                  static_cast<int>(seconds / 60 % 60));
  return text;
}

std::string html_time(int64_t milliseconds) {
  const time_t seconds = milliseconds / 1000;
  struct tm utc;
  char text[64];
  if (!::gmtime_r(&seconds, &utc) || std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc) == 0) return "";
  return text;
}
