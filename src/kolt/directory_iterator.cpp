#include "kolt/directory_iterator.h"

#include <new>

#include "ace/Log_Msg.h"

Directory_Iterator::Directory_Iterator_T(const char* path, bool flag, reparse_types_t types)
    : Directory_Iterator_T(path, nullptr, flag, types) {}

Directory_Iterator::Directory_Iterator_T(const char* path, const char* pattern, bool flag, reparse_types_t types)
    : handle_(new (std::nothrow) handle_t) {
  if (!handle_) {
    errno = ENOMEM;
    return;
  }
  if (!handle_->reader_.open(path, pattern, flag, types)) {
    handle_.reset();
    return;
  }
  if (handle_->reader_.read(handle_->val_)) return;
  if (handle_->reader_.last_error() == 0)
    handle_->done_ = true;
  else
    handle_.reset();
}

Directory_Iterator& Directory_Iterator::operator++() {
  if (handle_) handle_->done_ = !handle_->reader_.read(handle_->val_);
  return *this;
}

Directory_Iterator Directory_Iterator::operator++(int) {
  Directory_Iterator_T before(*this);
  ++*this;
  return before;
}

bool Directory_Iterator::operator==(const Directory_Iterator_T& other) const {
  if (handle_ == other.handle_) return true;
  if (handle_ && other.handle_) return handle_->done_ && other.handle_->done_;
  if (handle_) return handle_->done_;
  if (other.handle_) return other.handle_->done_;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Oops, logical error on Directory_Iterator operator ==\n")));
  return false;
}
