#include "client_io/s3_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "client_io/object_key.h"

namespace client_io {

namespace {

constexpr uint64_t small_object = 64 * 1024;

}  // namespace

bool S3_Reader::begin() {
  S3_Result result;
  const bool found = head_s3_object(session_, session_.settings().name_of(key_), &stop_, head_, result);
  reason_ = result.reason;
  if (!found || head_.size > small_object) return found;
  whole_.resize(static_cast<size_t>(head_.size));
  return whole_.empty() || get(0, whole_.data(), whole_.size(), reason_);
}

ssize_t S3_Reader::read(uint64_t offset, void* to, size_t n) {
  if (session_.canceled()) {
    errno = ECANCELED;
    return -1;
  }
  if (offset >= head_.size) return 0;
  n = static_cast<size_t>(std::min<uint64_t>(n, head_.size - offset));
  if (head_.size <= small_object) {
    std::memcpy(to, whole_.data() + offset, n);
    return static_cast<ssize_t>(n);
  }
  std::string reason;
  if (n == 0 || get(offset, static_cast<char*>(to), n, reason)) return static_cast<ssize_t>(n);
  if (errno != ECANCELED) log_failure("read", key_, session_.settings().root, reason);
  return -1;
}

bool S3_Reader::get(uint64_t offset, char* to, size_t n, std::string& reason) const {
  S3_Request request;
  request.name = session_.settings().name_of(key_);
  request.headers["range"] = "bytes=" + std::to_string(offset) + '-' + std::to_string(offset + n - 1);
  request.headers["if-match"] = head_.etag;
  request.to = to;
  request.to_size = n;
  request.stop = &stop_;
  S3_Result result;
  const bool good = session_.send(request, result);
  reason = result.reason;
  if (!good) {
    if (result.status == 412) errno = ESTALE;
    return false;
  }
  if (result.header("etag") != head_.etag) {  // the service does not know If-Match
    reason = "another ETag";
    errno = ESTALE;
    return false;
  }
  const std::string range = "bytes " + request.headers["range"].substr(6) + '/';
  if (result.header("content-range").starts_with(range) || (result.status == 200 && n == head_.size)) return true;
  reason += ", another range than was asked for";
  errno = EIO;
  return false;
}

}  // namespace client_io
