#pragma once

#include "http/http_request.h"

/// Why @a request can't be sent, or null if it can: its parts must not end the line in which they stand.
TESSARIN_API const char* request_fault(const HTTP_Request& request);
