#pragma once

#include <string>
#include <string_view>

#include "http/http_headers.h"
#include "kolt/export.h"

// What an ETag tells of the bytes that the service has got.
namespace client_io {

/// MD5 as the header "content-md5" tells it, and in hexadecimal digits as in the ETag of a body stored as it is.
struct S3_Md5 {
  std::string base64;
  std::string hex;
};
TESSARIN_API S3_Md5 s3_md5(std::string_view body);

/// Whether the answer to a body has an ETag that fits it. One that is no MD5 (that of an object which the service
/// enciphers by a key of its own) fits; none at all does not.
TESSARIN_API bool s3_etag_fits(const HTTP_Headers& headers, const S3_Md5& md5);

}  // namespace client_io
