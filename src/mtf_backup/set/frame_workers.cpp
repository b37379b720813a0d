#include "mtf_backup/set/frame_workers.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

#include "ace/Log_Msg.h"
#include "mtf_backup/set/damage.h"
#include "mtf_backup/set/frame_codec.h"
#include "task/task_context.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t least_per_medium = 2;
constexpr size_t least_for_reading = 8;

size_t default_threads() {
  return std::max<size_t>(2, std::thread::hardware_concurrency());
}

}  // namespace

size_t Frame_Workers::for_reading() {
  return std::max(least_for_reading, default_threads());
}

// Each thread keeps one buffer of its own, which comes out of the budget too.
Frame_Workers::Frame_Workers(size_t threads, size_t budget)
    : thread_count_(threads == 0 ? default_threads() : threads),
      buffer_count_(
          std::max(least_per_medium, budget / frame_capacity - std::min(thread_count_, budget / frame_capacity))),
      context_(Task_Context::current()),
      damage_listener_(Damage_Listener::current()) {
  spare_.reserve(buffer_count_);  // so that giving back needs no memory
}

Frame_Workers::~Frame_Workers() {
  {
    std::lock_guard<std::mutex> guard(lock_);
    closing_ = true;
  }
  job_came_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

bool Frame_Workers::open() {
  try {
    while (threads_.size() < thread_count_) threads_.emplace_back(&Frame_Workers::run, this);
  } catch (const std::exception&) {
    if (!threads_.empty()) return true;
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to start a thread for compression.\n")));
    errno = EAGAIN;
    return false;
  }
  return true;
}

void Frame_Workers::run() {
  const Task_Context::Attach attach(context_);
  const Damage_Listener::Scope listening(damage_listener_);
  Frame_Codec codec;
  std::unique_lock<std::mutex> guard(lock_);
  for (;;) {
    job_came_.wait(guard, [this] { return closing_ || !jobs_.empty(); });
    if (jobs_.empty()) return;
    Job job = std::move(jobs_.front());
    jobs_.pop_front();
    guard.unlock();
    job(codec);
    job = nullptr;  // may give a buffer back, for which the lock is taken
    guard.lock();
  }
}

void Frame_Workers::submit(Job job, bool urgent) {
  {
    std::lock_guard<std::mutex> guard(lock_);
    if (urgent)
      jobs_.push_front(std::move(job));
    else
      jobs_.push_back(std::move(job));
  }
  job_came_.notify_one();
}

size_t Frame_Workers::quota() const {
  return std::max(least_per_medium, buffer_count_ / std::max<size_t>(1, shares_));
}

bool Frame_Workers::may_take(const Share& share) const {
  return share.held_ < least_per_medium || (share.held_ < quota() && taken_ < buffer_count_);
}

Frame_Buffer Frame_Workers::get_buffer(Share& share) {
  Frame_Buffer buffer;
  if (spare_.empty()) {
    buffer.reset(new (std::nothrow) char[frame_capacity]);
  } else {
    buffer = std::move(spare_.back());
    spare_.pop_back();
  }
  if (!buffer) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("No memory for a frame.\n")));
    errno = ENOMEM;
    return nullptr;
  }
  ++taken_;
  ++share.held_;
  return buffer;
}

Frame_Workers::Share::Share(Frame_Workers& workers) : workers_(workers) {
  std::lock_guard<std::mutex> guard(workers_.lock_);
  ++workers_.shares_;
}

Frame_Workers::Share::~Share() {
  {
    std::lock_guard<std::mutex> guard(workers_.lock_);
    --workers_.shares_;
  }
  workers_.buffer_came_.notify_all();  // the others' parts have grown
}

Frame_Buffer Frame_Workers::Share::take() {
  std::unique_lock<std::mutex> guard(workers_.lock_);
  workers_.buffer_came_.wait(guard, [this] { return workers_.may_take(*this); });
  return workers_.get_buffer(*this);
}

Frame_Buffer Frame_Workers::Share::try_take() {
  std::lock_guard<std::mutex> guard(workers_.lock_);
  if (workers_.may_take(*this)) return workers_.get_buffer(*this);
  errno = EAGAIN;
  return nullptr;
}

Frame_Buffer Frame_Workers::Share::take_extra() {
  std::lock_guard<std::mutex> guard(workers_.lock_);
  return workers_.get_buffer(*this);
}

void Frame_Workers::Share::give(Frame_Buffer buffer) {
  if (!buffer) return;
  {
    std::lock_guard<std::mutex> guard(workers_.lock_);
    --workers_.taken_;
    --held_;
    if (workers_.taken_ + workers_.spare_.size() < workers_.buffer_count_) workers_.spare_.push_back(std::move(buffer));
  }
  workers_.buffer_came_.notify_all();
}

size_t Frame_Workers::Share::quota() const {
  std::lock_guard<std::mutex> guard(workers_.lock_);
  return workers_.quota();
}

}  // namespace MTF_BACKUP
