#pragma once

#include <ctime>
#include <map>
#include <string>
#include <string_view>

#include "kolt/export.h"
#include "kolt/secure_memory.h"

// Signature version 4 of requests to S3: the Authorization header over method, path, query, headers and the hash of the
// body. libcurl 7.88 can sign too, but it signs the query in the order and the encoding of the URL, which the service
// refuses, and there is no way to hold it against the published examples.
namespace client_io {

struct S3_Credentials {
  std::string access_key_id;
  secure_string secret_access_key;
  secure_string session_token;  ///< empty: none
};

/// Names in lower case, values without blanks around them.
typedef std::map<std::string, std::string> S3_Headers;
/// Names and values as they are, not encoded. Names need no encoding.
typedef std::map<std::string, std::string> S3_Query;

/// What is signed, as it is sent.
struct S3_Signed_Parts {
  std::string method;
  std::string path;          ///< encoded, begins with '/'
  S3_Query query;            ///< sent as s3_query_string()
  S3_Headers headers;        ///< all are signed; "host" and "x-amz-date" are among them
  std::string payload_hash;  ///< of s3_payload_hash()
};

/// The path of an object's name or a bucket: all but letters, digits and -._~/ is encoded.
TESSARIN_API std::string s3_encode_path(std::string_view name);
/// The query in its canonical form, without the '?'.
TESSARIN_API std::string s3_query_string(const S3_Query& query);
/// SHA-256 in hexadecimal digits.
TESSARIN_API std::string s3_payload_hash(std::string_view body);
/// A time as the header "x-amz-date" tells it: "20130524T000000Z".
TESSARIN_API std::string s3_timestamp(time_t time);

/// The value of the header "authorization".
TESSARIN_API std::string s3_authorization(const S3_Signed_Parts& parts, const std::string& region,
                                          const S3_Credentials& credentials);

}  // namespace client_io
