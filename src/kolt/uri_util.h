#pragma once

#include "kolt/export.h"

/// Whether @a uri, compared with regard to case, names a deduplicating store: "dedup://", "dedups://", "ws://" or
/// "wss://". Null is none.
TESSARIN_API bool is_dedup_uri(const char* uri);
