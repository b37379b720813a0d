#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "client_io/s3_object.h"
#include "kolt/export.h"

namespace client_io {

/// How many bytes the next part of an object has of which @a written are in parts. 10,000 of them make more than 5 TiB.
TESSARIN_API size_t s3_part_size(uint64_t written);

/// Bytes on their way to the service.
struct S3_Part {
  int number = 0;
  std::unique_ptr<char[]> bytes;
  size_t size = 0;
};

/**
 * A multipart upload: parts are sent by up to three threads, each part kept until the service has it. On their way are
 * parts of up to S3_Settings::resumption_buffer_size, but one at least and no more than 24 MiB unless one is larger;
 * and the writer has one more, that it fills. All but one of these count to S3_Part_Budget.
 *
 * A failure of a part is kept for the next call, and stops the others. Threads: belongs to one.
 */
class S3_Upload {
 public:
  /// All borrowed. @param stop  set here when a part fails; all requests end by it.
  S3_Upload(S3_Session& session, const S3_New_Object& object, std::atomic<bool>& stop)
      : session_(session), object_(object), stop_(stop) {}
  /// Waits for its threads. What was not finished is aborted, with one try.
  ~S3_Upload();
  S3_Upload(const S3_Upload&) = delete;
  S3_Upload& operator=(const S3_Upload&) = delete;

  // All give false with errno, and reason() for the log.

  [[nodiscard]] bool begin();
  /// Takes a part over.
  [[nodiscard]] bool add(S3_Part part);
  /// Waits until there may be one more part, of this size, beside those on their way.
  [[nodiscard]] bool wait_for_room(size_t size);
  /// Waits for all parts and puts them together under the object's name.
  [[nodiscard]] bool finish();

  std::string reason() const;

 private:
  void work();
  bool send(const S3_Part& part, std::string& etag, std::string& reason);
  bool start_thread();
  bool may_have(size_t size);
  bool wait_for(const std::function<bool()>& ready, std::unique_lock<std::mutex>& guard);
  bool complete();
  void abort();
  void join();

  S3_Session& session_;
  const S3_New_Object& object_;
  std::atomic<bool>& stop_;
  std::string id_;  // of the upload; empty: none
  bool finished_ = false;

  mutable std::mutex lock_;
  std::condition_variable changed_;
  std::deque<S3_Part> waiting_;       // guarded by lock_
  std::map<int, std::string> etags_;  // guarded by lock_
  size_t on_the_way_ = 0;             // guarded by lock_: bytes waiting or being sent
  size_t budgeted_ = 0;               // guarded by lock_: bytes taken of the budget
  size_t idle_ = 0;                   // guarded by lock_: threads without a part
  int error_ = 0;                     // guarded by lock_: the first failure
  std::string reason_;                // guarded by lock_: of that
  bool no_more_ = false;              // guarded by lock_
  std::vector<std::thread> threads_;
};

/// What a sweep has to know of the uploads of this process: for which names its writers have some, and which ones could
/// not be aborted. Threads: any.
class S3_Living_Uploads {
 public:
  static void add(const std::string& place);
  static void remove(const std::string& place);
  static bool has(const std::string& place);
  /// Notes the id of an upload that nobody needs any more and that is still there.
  static void give_up(const std::string& id);
  static bool is_given_up(const std::string& id);
  /// It is gone now.
  static void forget(const std::string& id);
  /// Names an object among all services.
  static std::string place(const S3_Settings& settings, const std::string& name);
};

}  // namespace client_io
