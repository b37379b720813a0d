#include "kolt/uri_util.h"

#include <cstring>

namespace {

constexpr const char* dedup_prefixes[] = {"dedup://", "dedups://", "ws://", "wss://"};

}  // namespace

bool is_dedup_uri(const char* uri) {
  if (uri == nullptr) return false;
  for (const char* prefix : dedup_prefixes)
    if (std::strncmp(uri, prefix, std::strlen(prefix)) == 0) return true;
  return false;
}
