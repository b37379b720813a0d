#include "mtf_backup/set/frame_cache.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "kolt/without_bad_alloc.h"
#include "mtf_backup/set/hash.h"
#include "mtf_backup/set/open_object.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t most_ahead = 8;
// Readers that work side by side on one stretch ask for frames a little out of order.
constexpr uint64_t near_by = 4;

}  // namespace

struct Frame_Cache::Slot {
  Slot(uint64_t number, bool asked_for, std::shared_ptr<Frame_Workers::Share> share)
      : number(number), share(std::move(share)), asked_for(asked_for) {}
  ~Slot() { share->give(std::move(buffer)); }

  const uint64_t number;
  const std::shared_ptr<Frame_Workers::Share> share;
  Frame_Buffer buffer;
  size_t size = 0;
  // Guarded by the cache's lock:
  bool asked_for;
  bool loaded = false;
  int error = 0;
  uint64_t last_use = 0;
};

Frame_Cache::Frame_Cache(Client_IO_Base& storage, const Medium_Id& id, Frame_Workers& workers)
    : storage_(storage),
      id_(id),
      key_(id.set_dir + "/" + medium_name(id)),
      workers_(workers),
      share_(std::make_shared<Frame_Workers::Share>(workers)) {}

Frame_Cache::~Frame_Cache() {
  std::unique_lock<std::mutex> guard(lock_);
  loaded_.wait(guard, [this] { return loading_ == 0; });
}

bool Frame_Cache::open(uint64_t medium_size, uint64_t index_size) {
  if (!index_.open(storage_, id_, index_size, medium_size)) return false;
  medium_ = open_object(storage_, key_, medium_size);
  return medium_ != nullptr;
}

bool Frame_Cache::view(uint64_t offset, size_t n, Frame_View& view) {
  view = Frame_View();
  if (offset >= size() || n == 0) return true;
  const uint64_t number = offset >> frame_shift;
  const size_t within = static_cast<size_t>(offset & (frame_size - 1));
  std::unique_lock<std::mutex> guard(lock_);
  const Slot_var slot = wait_for(number, guard);
  if (!slot) return false;
  slot->last_use = ++use_;
  view.data_ = slot->buffer.get() + within;
  view.size_ = std::min(n, slot->size - within);
  view.pin_ = slot;
  read_ahead(number);
  return true;
}

Frame_Cache::Slot_var Frame_Cache::wait_for(uint64_t number, std::unique_lock<std::mutex>& guard) {
  for (;;) {
    if (damaged_.count(number) != 0) {
      errno = EBADMSG;
      return nullptr;
    }
    const auto found = slots_.find(number);
    const Slot_var slot = found != slots_.end() ? found->second : start(number, true);
    if (!slot) return nullptr;
    if (slot->loaded) return slot;
    const bool told = slot->asked_for;
    slot->asked_for = true;
    loaded_.wait(guard, [&] { return slot->loaded || slot->error != 0; });
    if (slot->loaded) return slot;
    // A failure of a frame that was only fetched ahead may have passed before we asked: then once more, aloud.
    if (told || damaged_.count(number) != 0) {
      errno = slot->error;
      return nullptr;
    }
  }
}

Frame_Cache::Slot_var Frame_Cache::start(uint64_t number, bool asked_for) {
  const bool full = slots_.size() >= most_ahead + near_by;
  if (full) drop_oldest(asked_for);
  Slot_var slot;
  const auto begin = [&] {
    slot = std::make_shared<Slot>(number, asked_for, share_);
    slot->buffer = take_buffer(asked_for);
    if (!slot->buffer) return false;
    slots_[number] = slot;
    workers_.submit([this, slot](Frame_Codec& codec) { load(slot, codec); }, asked_for);
    ++loading_;
    return true;
  };
  if (without_bad_alloc(begin)) return slot;
  slots_.erase(number);
  return nullptr;
}

Frame_Buffer Frame_Cache::take_buffer(bool asked_for) {
  Frame_Buffer buffer = share_->try_take();
  if (!buffer && drop_oldest(asked_for)) buffer = share_->try_take();
  if (!buffer && asked_for) buffer = share_->take_extra();
  return buffer;
}

// Frames that were read go first, the one used longest ago before others. Whoever still views one keeps it in memory,
// so these are passed over.
bool Frame_Cache::drop_oldest(bool also_unread) {
  auto oldest = slots_.end();
  const auto rank = [](const Slot& slot) { return slot.last_use == 0 ? UINT64_MAX - slot.number : slot.last_use; };
  for (auto it = slots_.begin(); it != slots_.end(); ++it) {
    const Slot& slot = *it->second;
    if (!slot.loaded || it->second.use_count() > 1 || (slot.last_use == 0 && !also_unread)) continue;
    if (oldest == slots_.end() || rank(slot) < rank(*oldest->second)) oldest = it;
  }
  if (oldest == slots_.end()) return false;
  slots_.erase(oldest);
  return true;
}

void Frame_Cache::read_ahead(uint64_t number) {
  if (number == next_) {
    depth_ = std::min(depth_ * 2, most_ahead);
  } else if (number > next_ || number + near_by < next_) {
    depth_ = 0;  // a jump: nothing is known of what comes after it
  } else {
    return;
  }
  next_ = number + 1;
  const uint64_t end = std::min(next_ + depth_, index_.frames());
  if (depth_ == 0) depth_ = 1;
  for (uint64_t ahead = next_; ahead < end; ++ahead)
    if (slots_.count(ahead) == 0 && damaged_.count(ahead) == 0 && !start(ahead, false)) return;
}

void Frame_Cache::load(const Slot_var& slot, Frame_Codec& codec) {
  Damage damage;
  const bool loaded = without_bad_alloc([&] { return fill(*slot, codec, damage); });
  const int error = errno != 0 ? errno : EIO;
  finish(slot, loaded ? 0 : error, damage);
}

bool Frame_Cache::fill(Slot& slot, Frame_Codec& codec, Damage& damage) {
  Frame_Record record;
  if (!index_.record(slot.number, record, damage)) return false;
  const ssize_t got = medium_->read(record.stored_offset, slot.buffer.get(), record.stored_size);
  if (got < 0) return false;
  if (got < static_cast<ssize_t>(record.stored_size))
    return damage.set(key_, record.stored_offset + static_cast<uint64_t>(got), "it ends too early");
  if (hash64({slot.buffer.get(), record.stored_size}, 0) != record.hash)
    return damage.set(key_, record.stored_offset, "a frame is not what was written");
  slot.size = record.plain_size;
  if (codec.decompress(slot.buffer, record.stored_size, record.plain_size, id_.compression)) return true;
  return errno == EBADMSG && damage.set(key_, record.stored_offset, "a frame cannot be decompressed");
}

void Frame_Cache::finish(const Slot_var& slot, int error, const Damage& damage) {
  std::lock_guard<std::mutex> guard(lock_);
  slot->loaded = error == 0;
  slot->error = error;
  if (error != 0) {
    slots_.erase(slot->number);
    const auto tell = [&] {
      damage.tell();
      return damaged_.insert(slot->number).second;
    };
    if (slot->asked_for && !damage.reason.empty() && !without_bad_alloc(tell)) slot->error = ENOMEM;
  }
  --loading_;
  loaded_.notify_all();
}

}  // namespace MTF_BACKUP
