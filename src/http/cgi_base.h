#pragma once

#include <string>

#include "http/http_headers.h"

/// What a request and a response have in common.
class CGI_Base {
 public:
  HTTP_Headers& headers() { return headers_; }
  const HTTP_Headers& headers() const { return headers_; }

 protected:
  CGI_Base() = default;
  ~CGI_Base() = default;
  CGI_Base(const CGI_Base&) = default;
  CGI_Base& operator=(const CGI_Base&) = default;

 private:
  HTTP_Headers headers_;
};

/// Numbers of the methods.
enum HTTP_Method {
  HTTP_METHOD_OPTIONS = 1,
  HTTP_METHOD_HEAD = 2,
  HTTP_METHOD_GET = 3,
  HTTP_METHOD_POST = 4,
  HTTP_METHOD_PUT = 5,
  HTTP_METHOD_DELETE = 6,
  HTTP_METHOD_PATCH = 7
};

/// The method as it stands in a request, or null where the number is none.
TESSARIN_API const char* http_method_string(int method);

class CGI_Request : public CGI_Base {
 public:
  int method() const { return method_; }
  void method(int method) { method_ = method; }
  const std::string& uri() const { return uri_; }

 protected:
  int method_ = HTTP_METHOD_GET;
  std::string uri_;
};

class CGI_Response : public CGI_Base {
 public:
  /// Of the last exchange; 0 if there was none or it failed.
  int status() const { return status_; }
  void status(int status) { status_ = status; }

 private:
  int status_ = 0;
};
