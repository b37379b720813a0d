#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "http/cgi_base.h"

/// Whether @a list, a comma-separated list of tokens or null, holds @a token, whatever the case of its letters.
TESSARIN_API bool http_list_holds(const char* list, std::string_view token);

/**
 * The properties that are one header each. What is read says what stands in the header now; what is written replaces
 * the header.
 */
template <typename Base>
class HTTP_Base : public Base {
 public:
  /// 0 if absent.
  unsigned long long content_length() const {
    const char* text = this->headers().get(HTTP_HEAD_CONTENT_LENGTH, true);
    return text ? std::strtoull(text, nullptr, 10) : 0;
  }
  void content_length(unsigned long length) {
    char text[32];
    std::snprintf(text, sizeof text, "%lu", length);
    this->headers().put(HTTP_HEAD_CONTENT_LENGTH, text, true);
  }

  /// Null if absent.
  const char* content_type() const { return this->headers().get(HTTP_HEAD_CONTENT_TYPE, true); }
  void content_type(const char* type) { this->headers().put(HTTP_HEAD_CONTENT_TYPE, type, true); }

  /// Whether the connection may be used again after this message.
  bool keep_alive() const {
    const char* connection = this->headers().get(HTTP_HEAD_CONNECTION, true);
    if (http_list_holds(connection, "close")) return false;
    if (http_list_holds(connection, "Keep-Alive")) return true;
    return minor_version_ > 0;
  }
  void keep_alive(bool keep) { this->headers().put(HTTP_HEAD_CONNECTION, keep ? "Keep-Alive" : "close", true); }

  /// True for exactly "chunked".
  bool chunked_transfer_encoding() const {
    const char* encoding = this->headers().get(HTTP_HEAD_TRANSFER_ENCODING, true);
    return encoding && std::string_view(encoding) == "chunked";
  }
  void chunked_transfer_encoding(bool chunked) {
    this->headers().put(HTTP_HEAD_TRANSFER_ENCODING, chunked ? "chunked" : nullptr, true);
  }

  /// Of HTTP/1.x.
  int minor_version() const { return minor_version_; }
  void minor_version(int version) { minor_version_ = version; }

 protected:
  int minor_version_ = 1;
};
