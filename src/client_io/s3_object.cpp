#include "client_io/s3_object.h"

#include <cerrno>

#include "kolt/natoi.h"

namespace client_io {

bool head_s3_object(S3_Session& session, const std::string& name, const std::atomic<bool>* stop, S3_Object_Head& head,
                    S3_Result& result, size_t max_seconds_retry) {
  S3_Request request;
  request.method = "HEAD";
  request.name = name;
  request.stop = stop;
  request.max_seconds_retry = max_seconds_retry;
  if (!session.send(request, result)) return false;
  const std::string size = result.header("content-length");
  head.size = natoi<uint64_t>(size.c_str());
  const bool counted = errno == 0;
  head.etag = result.header("etag");
  head.mark = result.header(s3_writer_mark);
  if (counted && !head.etag.empty()) return true;
  result.reason += ", without a size or an ETag";
  errno = EIO;
  return false;
}

S3_Headers s3_new_headers(const S3_Session& session, const S3_New_Object& object) {
  S3_Headers headers{{s3_writer_mark, object.mark}};
  if (session.settings().server_side_encryption) headers["x-amz-server-side-encryption"] = "AES256";
  return headers;
}

bool is_s3_object_of(S3_Session& session, const S3_New_Object& object, const std::atomic<bool>* stop,
                     size_t max_seconds_retry) {
  S3_Object_Head head;
  S3_Result result;
  if (!head_s3_object(session, object.name, stop, head, result, max_seconds_retry)) return false;
  errno = EEXIST;
  return head.mark == object.mark;
}

void take_back_s3_object(S3_Session& session, const S3_New_Object& object) {
  if (!is_s3_object_of(session, object, nullptr, 0)) return;
  S3_Request request;
  request.method = "DELETE";
  request.name = object.name;
  request.max_seconds_retry = 0;
  S3_Result result;
  static_cast<void>(session.send(request, result));
}

bool publish_s3_object(S3_Session& session, const S3_New_Object& object, S3_Request request, S3_Result& result) {
  if (!object.overwrite) request.headers["if-none-match"] = "*";
  if (session.send(request, result)) return true;
  if (errno == ENOSYS && request.headers.erase("if-none-match") != 0 && session.send(request, result)) return true;
  // The answer to an earlier try may have been lost. What it made is in the way of the next, or its upload is gone. Nor
  // is each try known here: libcurl makes a second one by itself when a kept connection closes before an answer.
  const int error = errno;
  if (error != EEXIST && error != ENOENT) return false;
  if (is_s3_object_of(session, object, request.stop)) return true;
  if (errno != ECANCELED) errno = error;
  return false;
}

}  // namespace client_io
