#pragma once

#include <string>

/// @a host as it stands in a URL: an IPv6 address has brackets. Empty if it is no host.
inline std::string host_in_url(const std::string& host) {
  if (host.find_first_of("/@?#\\ \t\r\n") != host.npos) return {};
  const bool bare_ipv6 = host.find(':') != host.npos && !host.starts_with('[');
  return bare_ipv6 ? '[' + host + ']' : host;
}
