#pragma once

#include <atomic>
#include <string>

#include "client_io/s3_session.h"

// One object of the bucket, made or looked at by single requests. All give errno and log nothing.
namespace client_io {

/// By this header, kept with the object, a writer knows its own object again when an answer got lost.
inline constexpr char s3_writer_mark[] = "x-amz-meta-tessarin-writer";

struct S3_Object_Head {
  uint64_t size = 0;
  std::string etag;
  std::string mark;  ///< of its writer
};

/// False with errno, ENOENT where there is none.
/// @param stop, max_seconds_retry  as of S3_Request.
[[nodiscard]] bool head_s3_object(S3_Session& session, const std::string& name, const std::atomic<bool>* stop,
                                  S3_Object_Head& head, S3_Result& result, size_t max_seconds_retry = SIZE_MAX);

/// What a new object is to be.
struct S3_New_Object {
  std::string name;
  std::string mark;
  bool overwrite = false;
};

/// Headers that a new object is made with.
S3_Headers s3_new_headers(const S3_Session& session, const S3_New_Object& object);

/**
 * Sends the request that makes an object visible: never over another one, unless that is wanted. Services that do not
 * know the condition are asked without it; what happens between the look before and the request is then not noticed.
 * True as well where the service refuses since an earlier try has made the object: its mark tells.
 */
[[nodiscard]] bool publish_s3_object(S3_Session& session, const S3_New_Object& object, S3_Request request,
                                     S3_Result& result);

/// Whether the object is there and made by this writer. False with errno, EEXIST where it is another writer's.
bool is_s3_object_of(S3_Session& session, const S3_New_Object& object, const std::atomic<bool>* stop,
                     size_t max_seconds_retry = SIZE_MAX);

/// Removes what a writer has made without being told so, with one try.
void take_back_s3_object(S3_Session& session, const S3_New_Object& object);

}  // namespace client_io
