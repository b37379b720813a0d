#pragma once

#include "http/http_base.h"

/// What was answered: status and headers. The body goes elsewhere as it arrives.
class HTTP_Response : public HTTP_Base<CGI_Response> {
 public:
  /// As before any exchange: status 0, no headers.
  void reset() { *this = HTTP_Response(); }
};
