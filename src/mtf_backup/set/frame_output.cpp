#include "mtf_backup/set/frame_output.h"

#include <cerrno>
#include <new>
#include <system_error>

#include "ace/Log_Msg.h"
#include "kolt/without_bad_alloc.h"
#include "mtf_backup/set/hash.h"
#include "task/task_context.h"

namespace MTF_BACKUP {

Frame_Output::Frame_Output(Frame_Workers& workers, Frame_Workers::Share& share, Frame_Method method,
                           Hashed_Writer& medium, Index_Writer& index)
    : workers_(workers), share_(share), method_(method), medium_(medium), index_(index) {}

Frame_Output::~Frame_Output() {
  if (error_ == 0) error_ = ECANCELED;
  join();
}

bool Frame_Output::start() {
  try {
    thread_ = std::thread(&Frame_Output::run, this);
  } catch (const std::system_error&) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to start the thread of a medium.\n")));
    errno = EAGAIN;
    return false;
  }
  return true;
}

void Frame_Output::submit(Frame_Buffer buffer, size_t size) {
  Frame* frame;
  {
    std::lock_guard<std::mutex> guard(lock_);
    frames_.push_back({std::move(buffer), size, static_cast<uint32_t>(size)});
    frame = &frames_.back();
  }
  try {
    workers_.submit([this, frame](Frame_Codec& codec) { prepare(*frame, codec); }, false);
  } catch (const std::bad_alloc&) {
    // Nobody will prepare it, and finish() waits for every frame.
    error_ = ENOMEM;
    mark_ready(*frame);
  }
}

void Frame_Output::prepare(Frame& frame, Frame_Codec& codec) {
  const auto compress = [&] { return codec.compress(frame.buffer, frame.size, method_); };
  if (error_ == 0) {
    if (without_bad_alloc(compress))
      frame.hash = hash64({frame.buffer.get(), frame.size}, 0);
    else
      error_ = errno;
  }
  mark_ready(frame);
}

void Frame_Output::mark_ready(Frame& frame) {
  // Told under the lock: once it is released and the frame is ready this object may be gone.
  std::lock_guard<std::mutex> guard(lock_);
  frame.ready = true;
  changed_.notify_all();
}

void Frame_Output::run() {
  const Task_Context::Attach attach(workers_.context());
  std::unique_lock<std::mutex> guard(lock_);
  for (;;) {
    changed_.wait(guard, [this] { return frames_.empty() ? closing_ : frames_.front().ready; });
    if (frames_.empty()) return;
    Frame frame = std::move(frames_.front());
    frames_.pop_front();
    guard.unlock();
    if (error_ == 0 && !without_bad_alloc([&] { return write(frame); })) error_ = errno;
    share_.give(std::move(frame.buffer));
    guard.lock();
  }
}

bool Frame_Output::write(const Frame& frame) {
  const Frame_Record record{stored_size_, static_cast<uint32_t>(frame.size), frame.plain_size, frame.hash};
  if (!medium_.write(frame.buffer.get(), frame.size) || !index_.append(record)) return false;
  stored_size_ += frame.size;
  return true;
}

void Frame_Output::join() {
  if (!thread_.joinable()) return;
  {
    std::lock_guard<std::mutex> guard(lock_);
    closing_ = true;
    changed_.notify_all();
  }
  thread_.join();
}

bool Frame_Output::finish() {
  join();
  if (error_ == 0) return true;
  errno = error_;
  return false;
}

}  // namespace MTF_BACKUP
