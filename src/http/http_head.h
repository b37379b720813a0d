#pragma once

#include "kolt/export.h"

/// Numbers of the HTTP headers that are named by number.
enum HTTP_Head {
  HTTP_HEAD_ACCEPT = 1,
  HTTP_HEAD_ACCEPT_ENCODING = 2,
  HTTP_HEAD_AUTHORIZATION = 3,
  HTTP_HEAD_CONNECTION = 4,
  HTTP_HEAD_CONTENT_LENGTH = 5,
  HTTP_HEAD_CONTENT_TYPE = 6,
  HTTP_HEAD_RETRY_AFTER = 7,
  HTTP_HEAD_SEC_WEBSOCKET_PROTOCOL = 8,
  HTTP_HEAD_TRANSFER_ENCODING = 9,
  HTTP_HEAD_WARNING = 10,
  HTTP_HEAD_X_ACCESS_KEY = 49
};

/// The name of the header with the number @a head, or null where there is none. @a form is reserved: 0 is the usual
/// name.
TESSARIN_API const char* http_head_string(int head, int form);
