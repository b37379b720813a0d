#include "client_io/s3_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "client_io/object_key.h"
#include "kolt/rand_char.h"

namespace client_io {

namespace {

std::string new_mark() {
  std::string mark;
  while (mark.size() < 24) mark += kolt::rand_char(kolt::RCS_NUM_LOWER);
  return mark;
}

}  // namespace

S3_Writer::S3_Writer(S3_Session& session, const std::string& key)
    : session_(session),
      key_(key),
      object_{session.settings().name_of(key), new_mark(), session.settings().overwrite} {}

S3_Writer::~S3_Writer() {
  if (!ended_) discard();
}

bool S3_Writer::may_go_on() {
  errno = error_;
  return error_ == 0;
}

bool S3_Writer::write(const void* data, size_t n) {
  if (!may_go_on()) return false;
  return put(static_cast<const char*>(data), n) || fail("write");
}

bool S3_Writer::put(const char* data, size_t n) {
  do {
    if (session_.canceled()) {
      errno = ECANCELED;
      return false;
    }
    if (n > 0 && !make_room()) return false;
    const size_t piece = std::min(n, room_ - part_.size);
    if (piece > 0) std::memcpy(part_.bytes.get() + part_.size, data, piece);
    part_.size += piece;
    size_ += piece;
    data += piece;
    n -= piece;
  } while (n > 0);
  return true;
}

// A full part goes only when more comes: then it is known that the object has several.
bool S3_Writer::make_room() {
  if (part_.size < room_) return true;
  if (part_.size > 0 && !send_part()) return false;
  room_ = s3_part_size(size_);
  if (upload_ && !upload_->wait_for_room(room_)) return false;
  part_.bytes.reset(new (std::nothrow) char[room_]);
  if (part_.bytes) return true;
  errno = ENOMEM;
  return false;
}

bool S3_Writer::send_part() {
  if (!upload_) {
    upload_.reset(new (std::nothrow) S3_Upload(session_, object_, stop_));
    if (!upload_) errno = ENOMEM;
    if (!upload_ || !upload_->begin()) return false;
  }
  const int number = part_.number + 1;
  part_.number = number;
  const bool added = upload_->add(std::move(part_));
  part_ = S3_Part{number, nullptr, 0};
  room_ = 0;
  return added;
}

bool S3_Writer::commit() {
  if (!may_go_on()) return false;
  if (session_.canceled()) {
    errno = ECANCELED;
    return fail("commit");
  }
  if ((!object_.overwrite && !is_free()) || !publish()) return fail("commit");
  error_ = EINVAL;
  ended_ = true;
  upload_.reset();
  part_ = {};
  return true;
}

// The look before is for services that do not know the condition, and saves the upload of what is not wanted.
bool S3_Writer::is_free() {
  S3_Object_Head head;
  S3_Result result;
  if (!head_s3_object(session_, object_.name, &stop_, head, result)) {
    reason_ = result.reason;
    return errno == ENOENT;
  }
  errno = EEXIST;
  return false;
}

bool S3_Writer::publish() {
  if (!upload_) return put_whole();
  if (!send_part()) return false;
  asked_ = true;
  return upload_->finish();
}

bool S3_Writer::put_whole() {
  const std::string_view bytes(part_.bytes.get(), part_.size);
  const S3_Md5 md5 = s3_md5(bytes);
  S3_Request request;
  request.method = "PUT";
  request.name = object_.name;
  request.headers = s3_new_headers(session_, object_);
  request.body = bytes;
  request.md5 = &md5;
  request.stop = &stop_;
  asked_ = true;
  S3_Result result;
  const bool good = publish_s3_object(session_, object_, request, result);
  reason_ = result.reason;
  return good;
}

bool S3_Writer::fail(const char* operation) {
  error_ = errno;
  if (upload_) reason_ = upload_->reason();
  if (error_ != ECANCELED) {
    log_failure(operation, key_, session_.settings().root, reason_);
    discard();
  }
  errno = error_;
  return false;
}

// After a cancel only at the end, as it may take some seconds. Also the object itself, where nobody told whether it was
// made.
void S3_Writer::discard() {
  const int error = errno;
  ended_ = true;
  stop_ = true;
  upload_.reset();
  part_ = {};
  if (asked_) take_back_s3_object(session_, object_);
  errno = error;
}

}  // namespace client_io
