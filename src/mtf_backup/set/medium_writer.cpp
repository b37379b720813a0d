#include "mtf_backup/set/medium_writer.h"

#include <cerrno>
#include <memory>

#include "ace/Log_Msg.h"
#include "kolt/without_bad_alloc.h"
#include "mtf_backup/set/frame_output.h"

namespace MTF_BACKUP {

// In the order in which they are made: each of them uses those above it.
struct Medium_Writer::State {
  State(Frame_Workers& workers, Frame_Method method) : share(workers), output(workers, share, method, medium, index) {}

  Frame_Workers::Share share;
  Hashed_Writer medium;
  Index_Writer index;
  Frame_Output output;
};

Medium_Writer::Medium_Writer(Client_IO_Base& storage, const Medium_Id& id, int level, Frame_Workers& workers)
    : storage_(storage), id_(id), level_(level), workers_(workers) {}

Medium_Writer::~Medium_Writer() {
  if (state_) state_->share.give(std::move(current_));
}

bool Medium_Writer::open() {
  if (!has_level(id_.compression, level_)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Compression method %d with level %d is not supported.\n"),
               static_cast<int>(id_.compression), level_));
    errno = ENOTSUP;
    return false;
  }
  state_ = std::make_unique<State>(workers_, Frame_Method{id_.compression, level_});
  return state_->medium.open(storage_, id_.set_dir, medium_name(id_)) && state_->index.open(storage_, id_) &&
         state_->output.start();
}

bool Medium_Writer::failed() const {
  const int error = state_->output.error();
  if (error != 0) errno = error;
  return error != 0;
}

bool Medium_Writer::space(char*& at, size_t& avail) {
  if (failed()) return false;
  if (!current_) {
    current_ = state_->share.take();
    if (!current_) return false;
  }
  at = current_.get() + filled_;
  avail = frame_size - filled_;
  return true;
}

bool Medium_Writer::advance(size_t n) {
  filled_ += n;
  offset_ += n;
  if (filled_ == frame_size) hand_over();
  return !failed();
}

void Medium_Writer::hand_over() {
  state_->output.submit(std::move(current_), filled_);
  filled_ = 0;
}

bool Medium_Writer::finish() {
  if (filled_ > 0) hand_over();
  std::vector<Stored_Object> objects(2);
  if (!state_->output.finish() || !state_->medium.commit(objects[0])) return false;
  if (!without_bad_alloc([&] { return state_->index.finish(objects[1]); })) {
    const int error = errno;
    (void)storage_.remove(id_.set_dir + "/" + medium_name(id_));  // what stays is no set and is swept later
    errno = error;
    return false;
  }
  objects_ = std::move(objects);
  return true;
}

uint64_t Medium_Writer::stored_size() const {
  return state_ ? state_->output.stored_size() : 0;
}

}  // namespace MTF_BACKUP
