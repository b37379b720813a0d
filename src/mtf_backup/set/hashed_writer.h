#pragma once

#include <memory>
#include <string>

#include "client_io/client_io_base.h"
#include "mtf_backup/set/medium.h"

struct XXH3_state_s;

namespace MTF_BACKUP {

/// Writes one object of a set and computes on the way what the commit record tells of it. Errors as of Client_IO_Base.
class Hashed_Writer {
 public:
  Hashed_Writer();
  ~Hashed_Writer();

  /// @param set_dir, name  make the key.
  bool open(Client_IO_Base& storage, const std::string& set_dir, const std::string& name);
  bool write(const void* data, size_t n);
  /// @param object  set on success.
  bool commit(Stored_Object& object);
  uint64_t size() const { return size_; }

 private:
  struct Free_State {
    void operator()(XXH3_state_s* state) const;
  };

  std::string name_;
  uint64_t size_ = 0;
  std::unique_ptr<XXH3_state_s, Free_State> state_;
  std::unique_ptr<Client_IO_Base::Writer> writer_;
};

}  // namespace MTF_BACKUP
