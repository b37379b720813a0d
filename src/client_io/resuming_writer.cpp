#include "client_io/resuming_writer.h"

#include <algorithm>
#include <cerrno>

namespace client_io {

namespace {

constexpr size_t max_portion = size_t(1) << 20;
constexpr size_t min_buffer = size_t(64) << 10;  // to settle yet smaller pieces would take for ever

}  // namespace

Resuming_Writer::Resuming_Writer(std::unique_ptr<Writer> next, size_t buffer_size, Patience& patience)
    : next_(std::move(next)), buffer_size_(std::max(buffer_size, min_buffer)), patience_(patience) {}

Resuming_Writer::~Resuming_Writer() = default;

bool Resuming_Writer::write(const void* data, size_t n) {
  const char* at = static_cast<const char*>(data);
  do {  // also for no bytes: errors are told
    const size_t portion = std::min({n, max_portion, buffer_size_});
    if (!make_room(portion) || !append(at, portion)) return false;
    at += portion;
    n -= portion;
  } while (n > 0);
  return true;
}

bool Resuming_Writer::append(const char* data, size_t n) {
  if (!run([&] { return next_->write(data, n); })) return false;
  if (unsettled_.empty() || unsettled_.back().size() + n > buffer_size_ / 8) unsettled_.emplace_back();
  unsettled_.back().append(data, n);
  unsettled_size_ += n;
  return true;
}

// Settles the oldest pieces, whose way to the storage began a while ago, so that little is waited for.
bool Resuming_Writer::make_room(size_t n) {
  size_t pieces = 0;
  size_t count = 0;
  while (unsettled_size_ - count + n > buffer_size_) count += unsettled_[pieces++].size();
  if (count == 0) return true;
  if (!run([&] { return next_->settle(settled_ + count); })) return false;
  unsettled_.erase(unsettled_.begin(), unsettled_.begin() + static_cast<ptrdiff_t>(pieces));
  unsettled_size_ -= count;
  settled_ += count;
  return true;
}

bool Resuming_Writer::commit() {
  return run([&] { return next_->commit(); });
}

bool Resuming_Writer::run(const std::function<bool()>& step) {
  if (error_ != 0) {
    errno = error_;
    return false;
  }
  const auto attempt = [&] {
    if (broken_ && !write_again()) return false;
    broken_ = !step();
    return !broken_;
  };
  if (patience_.run(Patience::WRITING, attempt)) return true;
  error_ = errno;
  return false;
}

bool Resuming_Writer::write_again() {
  const int64_t at = next_->resume(settled_);
  if (at < 0) {
    if (errno == ENOTSUP) errno = EIO;  // final, and the line that told of the failure is the right one
    return false;
  }
  size_t known = static_cast<size_t>(static_cast<uint64_t>(at) - settled_);
  for (const std::string& piece : unsettled_) {
    const size_t skipped = std::min(known, piece.size());
    known -= skipped;
    if (skipped < piece.size() && !next_->write(piece.data() + skipped, piece.size() - skipped)) return false;
  }
  return true;
}

}  // namespace client_io
