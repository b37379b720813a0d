#include "mtf_backup/set/data_hash.h"

#include <xxhash.h>

#include <new>

namespace MTF_BACKUP {

namespace {

XXH3_state_t* state_of(void* state) {
  return static_cast<XXH3_state_t*>(state);
}

}  // namespace

Data_Hash::Data_Hash() : state_(XXH3_createState()) {
  if (!state_) throw std::bad_alloc();
  reset();
}

void Data_Hash::Free_State::operator()(void* state) const {
  XXH3_freeState(state_of(state));
}

void Data_Hash::reset() {
  XXH3_64bits_reset(state_of(state_.get()));
}

void Data_Hash::update(const void* data, size_t n) {
  XXH3_64bits_update(state_of(state_.get()), data, n);
}

uint64_t Data_Hash::value() const {
  return XXH3_64bits_digest(state_of(state_.get()));
}

uint64_t xattr_hash(const MTF::Xattrs& attrs) {
  if (attrs.empty()) return 0;
  Data_Hash hash;
  for (const auto& [name, value] : attrs) {
    const uint64_t size = value.size();
    hash.update(name.c_str(), name.size() + 1);  // the NUL keeps name and value apart
    hash.update(&size, sizeof size);
    hash.update(value.data(), value.size());
  }
  const uint64_t value = hash.value();
  return value ? value : 1;
}

}  // namespace MTF_BACKUP
