#pragma once

#include "http/http_response.h"

/// Logs what the server warns of in its Warning headers, at LM_INFO, each text once in the process. Threads: any.
void log_warnings(const HTTP_Response& response);
