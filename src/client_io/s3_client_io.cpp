#include "client_io/s3_client_io.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <new>
#include <vector>

#include "client_io/object_key.h"
#include "client_io/s3_names.h"
#include "client_io/s3_reader.h"
#include "client_io/s3_session.h"
#include "client_io/s3_upload.h"
#include "client_io/s3_writer.h"
#include "kolt/clock.h"
#include "kolt/natoi.h"

namespace client_io {

namespace {

// The texts of a listing's elements are encoded only where the service says so.
class Page {
 public:
  explicit Page(const S3_Element& xml) : xml_(xml), encoded_(xml["EncodingType"] == "url") {}

  std::string name(const std::string& text) const { return encoded_ ? s3_url_decoded(text) : text; }
  bool is_last() const { return xml_["IsTruncated"] != "true"; }
  template <typename Each>
  void each(std::string_view element, const Each& each) const {
    for (const S3_Element& child : xml_.children)
      if (child.name == element) each(child);
  }
  const std::string& operator[](std::string_view element) const { return xml_[element]; }

 private:
  const S3_Element& xml_;
  const bool encoded_;
};

typedef Client_IO_Base::Object_Info Object_Info;

// Some services list a directory before names that only begin with its name.
std::vector<Object_Info> objects_of(const Page& page, const S3_Settings& settings) {
  std::vector<Object_Info> objects;
  page.each("Contents", [&](const S3_Element& element) {
    Object_Info info;
    if (!settings.key_of(page.name(element["Key"]), info.key)) return;
    info.size = natoi<uint64_t>(element["Size"].c_str());
    objects.push_back(std::move(info));
  });
  std::sort(objects.begin(), objects.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
  return objects;
}

class Listing {
 public:
  Listing(S3_Session& session, const std::string& prefix, const Client_IO_Base::List_Callback& each)
      : session_(session), prefix_(prefix), each_(each) {}

  bool run(std::string& reason) {
    S3_Request request;
    request.answer = "ListBucketResult";
    request.query = {{"list-type", "2"}, {"prefix", session_.settings().name_of(prefix_)}, {"encoding-type", "url"}};
    for (;;) {
      S3_Result result;
      const bool good = session_.send(request, result);
      reason = result.reason;
      if (!good) return false;
      const Page page(result.xml);
      if (!show(page, reason)) return false;
      if (page.is_last()) return true;
      if (!next(page, request.query["continuation-token"], reason)) return false;
    }
  }

 private:
  bool show(const Page& page, std::string& reason) {
    for (const Object_Info& info : objects_of(page, session_.settings())) {
      if (!info.key.starts_with(prefix_)) return refuse("the service lists what was not asked for", reason);
      if (info.key <= last_) return refuse("the service lists in another order", reason);
      last_ = info.key;
      if (each_(info)) continue;
      errno = ECANCELED;
      return false;
    }
    return true;
  }

  static bool next(const Page& page, std::string& token, std::string& reason) {
    if (!page["NextContinuationToken"].empty() && page["NextContinuationToken"] != token) {
      token = page["NextContinuationToken"];
      return true;
    }
    return refuse("a listing without a continuation", reason);
  }

  static bool refuse(const char* why, std::string& reason) {
    reason = why;
    errno = EIO;
    return false;
  }

  S3_Session& session_;
  const std::string& prefix_;
  const Client_IO_Base::List_Callback& each_;
  std::string last_;
};

bool abort_upload(S3_Session& session, const std::string& name, const std::string& id, std::string& reason) {
  S3_Request request;
  request.method = "DELETE";
  request.name = name;
  request.query = {{"uploadId", id}};
  S3_Result result;
  const bool good = session.send(request, result) || errno == ENOENT;
  reason = result.reason;
  return good;
}

// The time a day ago as listings tell times, so that they can be compared as texts.
std::string a_day_ago() {
  const time_t time = kolt::clock().now() - 24 * 60 * 60;
  struct tm parts;
  char text[32];
  gmtime_r(&time, &parts);
  return std::string(text, strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts));
}

// Nobody tells whether the writer of an upload lives in another process. After a day it is taken for dead.
bool is_dead(const S3_Element& upload, const std::string& place, const std::string& oldest) {
  if (S3_Living_Uploads::has(place)) return false;
  const std::string& begun = upload["Initiated"];
  return S3_Living_Uploads::is_given_up(upload["UploadId"]) || (!begun.empty() && begun < oldest);
}

bool sweep_page(S3_Session& session, const Page& page, const std::string& prefix, const std::string& oldest,
                std::string& reason) {
  bool good = true;
  page.each("Upload", [&](const S3_Element& upload) {
    const std::string name = page.name(upload["Key"]);
    std::string key;
    if (!good || !session.settings().key_of(name, key) || !key.starts_with(prefix)) return;
    if (!is_dead(upload, S3_Living_Uploads::place(session.settings(), name), oldest)) return;
    good = abort_upload(session, name, upload["UploadId"], reason);
    if (good) S3_Living_Uploads::forget(upload["UploadId"]);  // else the next sweep finds it
  });
  return good;
}

bool sweep_uploads(S3_Session& session, const std::string& prefix, std::string& reason) {
  S3_Request request;
  const std::string oldest = a_day_ago();
  request.answer = "ListMultipartUploadsResult";
  request.query = {{"uploads", ""}, {"prefix", session.settings().name_of(prefix)}, {"encoding-type", "url"}};
  for (;;) {
    S3_Result result;
    const bool good = session.send(request, result);
    reason = result.reason;
    if (!good) return errno == ENOSYS;  // nothing can be done, and the service's own rules will
    const Page page(result.xml);
    if (!sweep_page(session, page, prefix, oldest, reason)) return false;
    const std::string marker = page.name(page["NextKeyMarker"]);
    const bool same =
        request.query["key-marker"] == marker && request.query["upload-id-marker"] == page["NextUploadIdMarker"];
    if (page.is_last() || marker.empty() || same) return true;
    request.query["key-marker"] = marker;
    request.query["upload-id-marker"] = page["NextUploadIdMarker"];
  }
}

}  // namespace

}  // namespace client_io

using namespace client_io;

S3_Client_IO::S3_Client_IO(const S3_Settings& settings) : session_(std::make_unique<S3_Session>(settings)) {}

S3_Client_IO::~S3_Client_IO() = default;

std::unique_ptr<Client_IO_Base::Writer> S3_Client_IO::create(const std::string& key) {
  const std::string& root = session_->settings().root;
  if (!check_key("create", key, root)) return nullptr;
  if (session_->canceled()) {
    errno = ECANCELED;
    return nullptr;
  }
  std::unique_ptr<Writer> writer;
  if (session_->settings().name_of(key).size() > max_s3_name)
    errno = ENAMETOOLONG;
  else if (writer.reset(new (std::nothrow) S3_Writer(*session_, key)); !writer)
    errno = ENOMEM;
  if (!writer) log_failure("create", key, root);
  return writer;
}

std::unique_ptr<Client_IO_Base::Reader> S3_Client_IO::open(const std::string& key) {
  const std::string& root = session_->settings().root;
  if (!check_key("open", key, root)) return nullptr;
  std::unique_ptr<S3_Reader> reader(new (std::nothrow) S3_Reader(*session_, key));
  if (!reader) errno = ENOMEM;
  if (reader && reader->begin()) return reader;
  if (errno != ENOENT && errno != ECANCELED) log_failure("open", key, root, reader ? reader->reason() : "");
  return nullptr;
}

bool S3_Client_IO::list(const std::string& prefix, const List_Callback& each) {
  std::string reason;
  if (Listing(*session_, prefix, each).run(reason)) return true;
  if (errno != ECANCELED) log_failure("list", prefix, session_->settings().root, reason);
  return false;
}

bool S3_Client_IO::remove(const std::string& key) {
  const std::string& root = session_->settings().root;
  if (!check_key("remove", key, root)) return false;
  S3_Request request;
  request.method = "DELETE";
  request.name = session_->settings().name_of(key);
  S3_Result result;
  if (session_->send(request, result)) return true;
  if (errno == ENOENT && result.code != "NoSuchBucket") return true;
  if (errno != ECANCELED) log_failure("remove", key, root, result.reason);
  return false;
}

bool S3_Client_IO::sweep(const std::string& prefix) {
  std::string reason;
  if (sweep_uploads(*session_, prefix, reason)) return true;
  if (errno != ECANCELED) log_failure("sweep", prefix, session_->settings().root, reason);
  return false;
}

void S3_Client_IO::cancel() {
  session_->cancel();
}
