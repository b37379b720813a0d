#pragma once

#include <memory>

#include "client_io/client_io_base.h"
#include "kolt/export.h"
#include "mtf/core/byte_source.h"
#include "mtf_backup/set/frame_workers.h"
#include "mtf_backup/set/medium.h"

namespace MTF_BACKUP {

class Frame_Cache;

/// Bytes of a frame that lie in memory; they stay there as long as the view lives. Cheap to copy.
class Frame_View {
 public:
  const char* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  friend class Frame_Cache;
  std::shared_ptr<const void> pin_;
  const char* data_ = nullptr;
  size_t size_ = 0;
};

/**
 * Reads the byte stream of one channel, at any plain offset. Every frame is verified against the index before a byte of
 * it is given out. Frames ahead of a reader that goes forward are fetched and decompressed by the workers.
 *
 * Errors: -1 or false with errno EBADMSG for damage, after one line at LM_ERROR with object and offset (damage of one
 * frame is logged once, however often it is asked for), or what the storage said. A failed frame does not spoil the
 * others. Life: open(), then reads. May be destroyed at any time at which no call is under way; views may outlive it,
 * not the workers. Ownership: borrows storage and workers, which outlive it. Threads: after open(), any number. A
 * thread holds at most one view while it asks for the next: memory is bounded by the number of views held.
 */
class TESSARIN_API Medium_Reader : public MTF::Byte_Source {
 public:
  /// @param medium, index  sizes that the commit record tells for the two objects.
  Medium_Reader(Client_IO_Base& storage, const Medium_Id& id, uint64_t medium_size, uint64_t index_size,
                Frame_Workers& workers);
  ~Medium_Reader() override;

  /// Opens both objects and checks the index's ends and both sizes. False with errno; here a missing object is logged.
  [[nodiscard]] bool open();

  /// Plain bytes of the medium. 0 before open().
  uint64_t size() const;

  /// Reads @a n bytes; fewer only at the end of the medium, 0 at or behind it, -1 on failure.
  [[nodiscard]] ssize_t read(uint64_t offset, char* to, size_t n) override;

  /**
   * Shows bytes from @a offset on without copying them: at most @a n, up to the end of their frame; at least one, but
   * for n of 0 and at or behind the end of the medium. On failure @a view is empty.
   */
  [[nodiscard]] bool view(uint64_t offset, size_t n, Frame_View& view);

 private:
  const uint64_t medium_size_;
  const uint64_t index_size_;
  std::unique_ptr<Frame_Cache> cache_;
};

}  // namespace MTF_BACKUP
