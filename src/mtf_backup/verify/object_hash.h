#pragma once

#include <xxhash.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "client_io/client_io_base.h"
#include "kolt/export.h"

namespace MTF_BACKUP {

/// XXH3-128 of an object whose bytes come in any order, as threads read it that have other things in mind. Memory: what
/// came too early, up to 16 MiB. Threads: any.
class TESSARIN_API Object_Hash {
 public:
  /// @param size  of the object.
  explicit Object_Hash(uint64_t size);

  /// Takes bytes that were read. @param reader  for what is missing before them, when it does not come.
  void add(uint64_t offset, const char* bytes, size_t n, Client_IO_Base::Reader& reader);

  /// Reads what has not come. @retval false  with errno; @a offset says where.
  bool finish(Client_IO_Base::Reader& reader, uint64_t& offset);
  /// After finish(), as a commit record has it.
  std::string text() const;

 private:
  struct Free_State {
    void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
  };

  // With lock_ held:
  void take(uint64_t offset, const char* bytes, size_t n);
  void drain();
  bool read_up_to(uint64_t end, Client_IO_Base::Reader& reader);

  const uint64_t size_;
  mutable std::mutex lock_;
  std::unique_ptr<XXH3_state_t, Free_State> state_;  // guarded by lock_, as all below
  uint64_t done_ = 0;                                // so many bytes are in the state
  std::map<uint64_t, std::string> early_;            // by offset, all behind done_
  size_t early_size_ = 0;
  bool stuck_ = false;  // something before early_ cannot be read
};

}  // namespace MTF_BACKUP
