#pragma once

#include <memory>
#include <vector>

#include "client_io/client_io_base.h"
#include "kolt/export.h"
#include "mtf/core/byte_sink.h"
#include "mtf_backup/set/frame_workers.h"
#include "mtf_backup/set/medium.h"

namespace MTF_BACKUP {

/**
 * Writes the byte stream of one channel into the pool: the medium, cut into frames, and its index.
 *
 * Full frames go to the workers, which compress and checksum them side by side; a thread of the medium writes them in
 * order.
 *
 * Life: open(); space() and advance() any number of times; finish(); objects(). One that is destroyed without a
 * successful finish() leaves nothing in the pool, and may be destroyed at any point, also while frames are under way.
 * Errors: sticky. The first failure (logged where it is found) is what every later call fails with.
 * Ownership: borrows storage and workers, which outlive it.
 * Threads: one at a time.
 */
class TESSARIN_API Medium_Writer : public MTF::Byte_Sink {
 public:
  /// @param level  of zstd; 0 is the method's default.
  Medium_Writer(Client_IO_Base& storage, const Medium_Id& id, int level, Frame_Workers& workers);
  ~Medium_Writer() override;

  /// Begins both objects and starts the medium's thread. False with errno; a compression method other than none, auto
  /// and zstd is ENOTSUP with one line at LM_ERROR.
  [[nodiscard]] bool open();

  /**
   * Room in the current frame, at least one byte, for the caller to fill. Waits while all buffers are under way.
   * @param at, avail  untouched on failure; valid until advance() or finish().
   */
  [[nodiscard]] bool space(char*& at, size_t& avail) override;
  /// Takes the first @a n bytes of the room that space() gave.
  [[nodiscard]] bool advance(size_t n) override;
  /// Plain bytes taken so far.
  uint64_t offset() const override { return offset_; }

  /// Writes what is left, waits for all frames and makes medium and index durable and visible, in this order. Called
  /// once.
  [[nodiscard]] bool finish();

  /// The medium and its index; empty before finish().
  const std::vector<Stored_Object>& objects() const { return objects_; }
  /// Bytes that the medium has taken in the pool so far, without the index. May be called from any thread.
  uint64_t stored_size() const;

 private:
  struct State;
  bool failed() const;
  void hand_over();

  Client_IO_Base& storage_;
  const Medium_Id id_;
  const int level_;
  Frame_Workers& workers_;
  std::unique_ptr<State> state_;
  Frame_Buffer current_;
  size_t filled_ = 0;
  uint64_t offset_ = 0;
  std::vector<Stored_Object> objects_;
};

}  // namespace MTF_BACKUP
