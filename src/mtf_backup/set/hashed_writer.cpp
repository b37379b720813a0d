#include "mtf_backup/set/hashed_writer.h"

#include <xxhash.h>

#include <new>
#include <utility>

#include "mtf_backup/set/hash.h"

namespace MTF_BACKUP {

void Hashed_Writer::Free_State::operator()(XXH3_state_s* state) const {
  XXH3_freeState(state);
}

Hashed_Writer::Hashed_Writer() = default;
Hashed_Writer::~Hashed_Writer() = default;

bool Hashed_Writer::open(Client_IO_Base& storage, const std::string& set_dir, const std::string& name) {
  name_ = name;
  state_.reset(XXH3_createState());
  if (!state_) throw std::bad_alloc();
  XXH3_128bits_reset(state_.get());
  writer_ = storage.create(set_dir + "/" + name);
  return writer_ != nullptr;
}

bool Hashed_Writer::write(const void* data, size_t n) {
  if (!writer_->write(data, n)) return false;
  XXH3_128bits_update(state_.get(), data, n);
  size_ += n;
  return true;
}

bool Hashed_Writer::commit(Stored_Object& object) {
  // Before the commit: once the object is there, nothing may keep the caller from knowing.
  Stored_Object made{name_, size_, hash_text(XXH3_128bits_digest(state_.get()))};
  if (!writer_->commit()) return false;
  object = std::move(made);
  return true;
}

}  // namespace MTF_BACKUP
