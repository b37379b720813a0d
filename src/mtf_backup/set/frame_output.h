#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "mtf_backup/set/frame_codec.h"
#include "mtf_backup/set/frame_workers.h"
#include "mtf_backup/set/hashed_writer.h"
#include "mtf_backup/set/medium_index.h"

namespace MTF_BACKUP {

/**
 * Takes the full frames of one medium, has them compressed and hashed by the workers, side by side, and writes them and
 * their index records in order on a thread of its own: storage that is slow, or made slow by a rate limit, then holds
 * up nobody else.
 *
 * Errors: sticky; after the first one frames are taken and dropped, so that nobody waits for ever.
 * Threads: submit(), finish() and the destructor by one thread; error() and stored_size() by any.
 */
class Frame_Output {
 public:
  /// All are borrowed and outlive the object. The writers are open.
  Frame_Output(Frame_Workers& workers, Frame_Workers::Share& share, Frame_Method method, Hashed_Writer& medium,
               Index_Writer& index);
  /// Waits for what is under way, without writing it.
  ~Frame_Output();

  /// False with errno EAGAIN, after one line at LM_ERROR, when there is no thread to be had.
  bool start();

  /// Takes a frame of @a size plain bytes, behind all taken before.
  void submit(Frame_Buffer frame, size_t size);

  /// Waits until all frames are written. False with errno on the first failure.
  bool finish();

  /// errno of the first failure, or 0.
  int error() const { return error_; }
  /// Bytes of the medium written so far.
  uint64_t stored_size() const { return stored_size_; }

 private:
  struct Frame {
    Frame_Buffer buffer;
    size_t size;  // plain, then stored
    uint32_t plain_size;
    uint64_t hash = 0;
    bool ready = false;  // guarded by lock_
  };

  void prepare(Frame& frame, Frame_Codec& codec);
  void mark_ready(Frame& frame);
  void run();
  bool write(const Frame& frame);
  void join();

  Frame_Workers& workers_;
  Frame_Workers::Share& share_;
  const Frame_Method method_;
  Hashed_Writer& medium_;
  Index_Writer& index_;
  std::thread thread_;
  std::atomic<int> error_{0};
  std::atomic<uint64_t> stored_size_{0};

  std::mutex lock_;
  std::condition_variable changed_;
  std::deque<Frame> frames_;  // guarded by lock_; in order. A deque: those under way stay where they are
  bool closing_ = false;      // guarded by lock_: no more frames will come
};

}  // namespace MTF_BACKUP
