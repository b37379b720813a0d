#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "mtf_backup/set/frame_codec.h"
#include "mtf_backup/set/frame_workers.h"
#include "mtf_backup/set/medium_index.h"
#include "mtf_backup/set/medium_reader.h"

namespace MTF_BACKUP {

/**
 * The frames of one medium that lie in memory, verified and plain. Frames are loaded by the workers: those asked for
 * first, those ahead of a reader that goes forward while they have time. Threads: after open(), any.
 */
class Frame_Cache {
 public:
  Frame_Cache(Client_IO_Base& storage, const Medium_Id& id, Frame_Workers& workers);
  /// Waits for the loads under way.
  ~Frame_Cache();

  bool open(uint64_t medium_size, uint64_t index_size);
  uint64_t size() const { return index_.plain_size(); }
  /// As Medium_Reader::view().
  bool view(uint64_t offset, size_t n, Frame_View& view);

 private:
  struct Slot;
  typedef std::shared_ptr<Slot> Slot_var;

  // With lock_ held:
  Slot_var wait_for(uint64_t number, std::unique_lock<std::mutex>& guard);
  Slot_var start(uint64_t number, bool asked_for);
  Frame_Buffer take_buffer(bool asked_for);
  void read_ahead(uint64_t number);
  bool drop_oldest(bool also_unread);

  void load(const Slot_var& slot, Frame_Codec& codec);
  bool fill(Slot& slot, Frame_Codec& codec, Damage& damage);
  void finish(const Slot_var& slot, int error, const Damage& damage);

  Client_IO_Base& storage_;
  const Medium_Id id_;
  const std::string key_;
  Frame_Workers& workers_;
  const std::shared_ptr<Frame_Workers::Share> share_;  // shared with the slots, which views may keep
  Index_Reader index_;
  std::unique_ptr<Client_IO_Base::Reader> medium_;

  std::mutex lock_;
  std::condition_variable loaded_;
  std::map<uint64_t, Slot_var> slots_;  // guarded by lock_, as all below
  std::set<uint64_t> damaged_;          // told already
  size_t loading_ = 0;
  uint64_t use_ = 0;   // counts calls of view(), for the age of slots
  uint64_t next_ = 0;  // behind the furthest frame of a reader that goes forward
  size_t depth_ = 1;   // how many frames are fetched ahead
};

}  // namespace MTF_BACKUP
