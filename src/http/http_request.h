#pragma once

#include "http/http_base.h"

/// What is asked: method, URI, headers. The body is handed over with it.
class HTTP_Request : public HTTP_Base<CGI_Request> {
 public:
  HTTP_Request() = default;
  HTTP_Request(int method, const char* text, bool encoded) {
    method_ = method;
    uri(text, encoded);
  }

  using CGI_Request::uri;
  /// Sets the URI: path and query, beginning with '/'. A null one is empty.
  /// Nothing is encoded here: a text with blanks or control characters makes the exchange fail before anything is sent.
  /// @param encoded  says that @a text is percent-encoded where it has to be; it is sent as it stands either way.
  void uri(const char* text, bool encoded) {
    static_cast<void>(encoded);
    uri_ = text ? text : "";
  }

  /// Clears the headers and the URI.
  void reset() {
    headers().clear();
    uri_.clear();
  }
};
