#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "mtf_backup/channel_factory.h"
#include "mtf_backup/verify/object_hash.h"

namespace MTF_BACKUP {

/// The objects that are hashed while they are read, by key, and how many bytes of them were. Filled before any client
/// is used.
struct Hashed_Objects {
  std::map<std::string, Object_Hash> hashes;
  std::atomic<uint64_t>& bytes_read;
};

/// Gives out clients of another factory that hash what they read. Both are borrowed. Threads: any.
class Hashing_Channel_Factory : public Channel_Factory {
 public:
  Hashing_Channel_Factory(Channel_Factory& next, Hashed_Objects& objects) : next_(next), objects_(objects) {}

  std::shared_ptr<Client_IO_Base> storage() override;
  const Client_IO_Base::Options& options() const override { return next_.options(); }

 private:
  Channel_Factory& next_;
  Hashed_Objects& objects_;
};

}  // namespace MTF_BACKUP
