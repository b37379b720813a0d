#pragma once

#include "kolt/export.h"

/// Numbers of the HTTP headers that are named by number.
enum HTTP_Head { HTTP_HEAD_X_ACCESS_KEY = 49 };

/// The name of the header with the number @a head, or null where there is none. @a form is reserved: 0 is the usual
/// name.
TESSARIN_API const char* http_head_string(int head, int form);
