#include "client_io/s3_upload.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <system_error>

#include "client_io/s3_part_budget.h"
#include "kolt/without_bad_alloc.h"

namespace client_io {

namespace {

constexpr size_t mib = size_t(1) << 20;
constexpr size_t smallest_part = 8 * mib;
constexpr size_t most_threads = 3;
constexpr size_t most_on_the_way = most_threads * smallest_part;  // of one writer
constexpr std::chrono::milliseconds upload_poll{100};

struct Living {
  std::mutex lock;
  std::multiset<std::string> places;  // guarded by lock
  std::set<std::string> given_up;     // guarded by lock: ids
};

Living& living() {
  static Living all;
  return all;
}

}  // namespace

// Parts grow with the object, by a 1,250th of it: so small ones stay small, and a large one needs few.
size_t s3_part_size(uint64_t written) {
  const uint64_t grown = written / 1250 / mib * mib;
  return static_cast<size_t>(std::max<uint64_t>(smallest_part, grown));
}

S3_Upload::~S3_Upload() {
  const int error = errno;
  if (!finished_) stop_ = true;
  join();
  S3_Part_Budget::give_back(budgeted_);
  if (!id_.empty() && !finished_) abort();
  S3_Living_Uploads::remove(S3_Living_Uploads::place(session_.settings(), object_.name));
  errno = error;
}

std::string S3_Upload::reason() const {
  const std::lock_guard<std::mutex> guard(lock_);
  return reason_;
}

bool S3_Upload::begin() {
  // Before there is an upload, so that no sweep takes it for a dead one.
  S3_Living_Uploads::add(S3_Living_Uploads::place(session_.settings(), object_.name));
  S3_Request request;
  request.method = "POST";
  request.name = object_.name;
  request.query = {{"uploads", ""}};
  request.answer = "InitiateMultipartUploadResult";
  request.headers = s3_new_headers(session_, object_);
  request.stop = &stop_;
  S3_Result result;
  if (!session_.send(request, result)) {
    reason_ = result.reason;
    return false;
  }
  id_ = result.xml["UploadId"];
  if (!id_.empty()) return true;
  reason_ = "an upload without an id";
  errno = EIO;
  return false;
}

bool S3_Upload::wait_for_room(size_t size) {
  std::unique_lock<std::mutex> guard(lock_);
  return wait_for([&] { return may_have(size); }, guard);
}

// Called with the lock held.
bool S3_Upload::may_have(size_t size) {
  if (on_the_way_ == 0) return true;  // whatever others have: nobody may wait for them for ever
  const size_t most = std::clamp(session_.settings().resumption_buffer_size, smallest_part, most_on_the_way);
  if (on_the_way_ > std::max(most, size) || !S3_Part_Budget::take(size)) return false;
  budgeted_ += size;
  return true;
}

bool S3_Upload::add(S3_Part part) {
  const std::lock_guard<std::mutex> guard(lock_);
  if (error_ != 0) {
    errno = error_;
    return false;
  }
  const size_t size = part.size;
  etags_.try_emplace(part.number);
  waiting_.push_back(std::move(part));
  on_the_way_ += size;
  if (idle_ < waiting_.size() && threads_.size() < most_threads && !start_thread()) return false;
  changed_.notify_all();
  return true;
}

// Called with the lock held.
bool S3_Upload::start_thread() {
  try {
    threads_.emplace_back([this] { work(); });
  } catch (const std::system_error& failure) {
    if (!threads_.empty()) return true;  // those will do
    reason_ = "no thread";
    errno = error_ = failure.code().value();
    return false;
  }
  return true;
}

bool S3_Upload::wait_for(const std::function<bool()>& ready, std::unique_lock<std::mutex>& guard) {
  while (error_ == 0 && !session_.canceled() && !ready()) changed_.wait_for(guard, upload_poll);
  if (error_ == 0 && session_.canceled()) error_ = ECANCELED;
  errno = error_;
  return error_ == 0;
}

void S3_Upload::work() {
  std::unique_lock<std::mutex> guard(lock_);
  for (;;) {
    ++idle_;
    changed_.wait(guard, [this] { return stop_ || no_more_ || !waiting_.empty(); });
    --idle_;
    if (stop_ || waiting_.empty()) return;
    const S3_Part part = std::move(waiting_.front());
    waiting_.pop_front();
    std::string& etag = etags_.find(part.number)->second;
    guard.unlock();
    std::string reason;
    const int error = without_bad_alloc([&] { return send(part, etag, reason); }) ? 0 : errno;
    guard.lock();
    on_the_way_ -= part.size;
    const size_t unneeded = on_the_way_ == 0 ? budgeted_ : std::min(budgeted_, part.size);
    S3_Part_Budget::give_back(unneeded);
    budgeted_ -= unneeded;
    if (error != 0 && error_ == 0) {
      error_ = error;
      reason_ = reason.empty() ? "no memory" : std::move(reason);
      stop_ = true;
    }
    changed_.notify_all();
  }
}

bool S3_Upload::send(const S3_Part& part, std::string& etag, std::string& reason) {
  const std::string_view bytes(part.bytes.get(), part.size);
  const S3_Md5 md5 = s3_md5(bytes);
  S3_Request request;
  request.method = "PUT";
  request.name = object_.name;
  request.query = {{"partNumber", std::to_string(part.number)}, {"uploadId", id_}};
  request.body = bytes;
  request.md5 = &md5;
  request.stop = &stop_;
  S3_Result result;
  const bool sent = session_.send(request, result);
  reason = result.reason;
  etag = result.header("etag");
  return sent;
}

bool S3_Upload::finish() {
  std::unique_lock<std::mutex> guard(lock_);
  if (!wait_for([this] { return on_the_way_ == 0; }, guard)) return false;
  no_more_ = true;
  changed_.notify_all();
  guard.unlock();
  join();
  finished_ = complete();
  return finished_;
}

bool S3_Upload::complete() {
  std::string body = "<CompleteMultipartUpload>";
  for (const auto& [number, etag] : etags_)
    body +=
        "<Part><PartNumber>" + std::to_string(number) + "</PartNumber><ETag>" + s3_xml_escaped(etag) + "</ETag></Part>";
  body += "</CompleteMultipartUpload>";
  S3_Request request;
  request.method = "POST";
  request.name = object_.name;
  request.query = {{"uploadId", id_}};
  request.answer = "CompleteMultipartUploadResult";
  request.body = body;
  request.stop = &stop_;
  S3_Result result;
  const bool good = publish_s3_object(session_, object_, request, result);
  reason_ = result.reason;
  if (!good && errno == ENOENT && result.code == "NoSuchUpload") errno = EIO;  // it is the object that is not there yet
  return good;
}

// What remains where this fails as well is found by a sweep.
void S3_Upload::abort() {
  S3_Request request;
  request.method = "DELETE";
  request.name = object_.name;
  request.query = {{"uploadId", id_}};
  request.max_seconds_retry = 0;
  S3_Result result;
  if (!session_.send(request, result) && errno != ENOENT) S3_Living_Uploads::give_up(id_);
}

void S3_Upload::join() {
  {
    const std::lock_guard<std::mutex> guard(lock_);
    no_more_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
}

void S3_Living_Uploads::add(const std::string& place) {
  const std::lock_guard<std::mutex> guard(living().lock);
  living().places.insert(place);
}

void S3_Living_Uploads::remove(const std::string& place) {
  const std::lock_guard<std::mutex> guard(living().lock);
  const auto found = living().places.find(place);
  if (found != living().places.end()) living().places.erase(found);
}

bool S3_Living_Uploads::has(const std::string& place) {
  const std::lock_guard<std::mutex> guard(living().lock);
  return living().places.count(place) != 0;
}

void S3_Living_Uploads::give_up(const std::string& id) {
  const std::lock_guard<std::mutex> guard(living().lock);
  living().given_up.insert(id);
}

bool S3_Living_Uploads::is_given_up(const std::string& id) {
  const std::lock_guard<std::mutex> guard(living().lock);
  return living().given_up.contains(id);
}

void S3_Living_Uploads::forget(const std::string& id) {
  const std::lock_guard<std::mutex> guard(living().lock);
  living().given_up.erase(id);
}

std::string S3_Living_Uploads::place(const S3_Settings& settings, const std::string& name) {
  return settings.url + settings.base_path + '/' + name;
}

}  // namespace client_io
