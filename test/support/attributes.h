#pragma once

#include <string>

namespace test_support {

/// As setxattr(2) takes an access list: owner rw, user 7 rw, group r, mask rw, others nothing.
inline const std::string access_list(
    "\x02\0\0\0"
    "\x01\0\x06\0\xff\xff\xff\xff"
    "\x02\0\x06\0\x07\0\0\0"
    "\x04\0\x04\0\xff\xff\xff\xff"
    "\x10\0\x06\0\xff\xff\xff\xff"
    "\x20\0\0\0\xff\xff\xff\xff",
    44);

/// CAP_NET_BIND_SERVICE, effective.
inline const std::string capability("\x01\0\0\x02\0\x04\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 20);

}  // namespace test_support
