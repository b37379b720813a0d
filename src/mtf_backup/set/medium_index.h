#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "client_io/client_io_base.h"
#include "mtf_backup/set/damage.h"
#include "mtf_backup/set/hashed_writer.h"
#include "mtf_backup/set/medium.h"

// The index of a medium: header, one record per frame, trailer, as doc/set-format.md tells.
namespace MTF_BACKUP {

constexpr size_t index_header_size = 32;
constexpr size_t index_record_size = 32;
constexpr size_t index_trailer_size = 32;

/// Where a frame lies in the stored medium, and how to know it.
struct Frame_Record {
  uint64_t stored_offset = 0;
  uint32_t stored_size = 0;
  uint32_t plain_size = 0;
  uint64_t hash = 0;  ///< XXH3-64 of the stored bytes

  bool operator==(const Frame_Record&) const = default;
};

/// Writes the index while the medium is written. Errors as of Client_IO_Base. Threads: one at a time.
class Index_Writer {
 public:
  bool open(Client_IO_Base& storage, const Medium_Id& id);
  bool append(const Frame_Record& record);
  bool finish(Stored_Object& object);

 private:
  bool flush();

  uint64_t identity_ = 0;
  uint64_t frames_ = 0;
  uint64_t stored_size_ = 0;
  uint64_t plain_size_ = 0;
  std::string buffer_;
  Hashed_Writer writer_;
};

/// Reads single records. Nothing in the object is trusted. Errors: errno with one line at LM_ERROR, EBADMSG for damage.
/// Threads: after open(), any.
class Index_Reader {
 public:
  /// @param size         of the index object, as the commit record tells.
  /// @param medium_size  stored bytes of the medium, as the commit record tells.
  bool open(Client_IO_Base& storage, const Medium_Id& id, uint64_t size, uint64_t medium_size);

  uint64_t frames() const { return frames_; }
  /// Plain bytes of the medium.
  uint64_t plain_size() const { return plain_size_; }

  /// The record of frame @a number, which is less than frames().
  /// @retval false  errno is EBADMSG, not logged but told in @a damage, or what the storage failed with.
  bool record(uint64_t number, Frame_Record& record, Damage& damage);

 private:
  bool check_header();
  bool check_trailer();
  bool load_page(uint64_t page);
  bool read_exactly(uint64_t offset, char* to, size_t n);
  const char* fault(uint64_t number, const Frame_Record& record) const;

  std::string key_;
  Compression_Method form_ = COMPR_NONE;  // of the frames
  uint64_t identity_ = 0;
  uint64_t medium_size_ = 0;
  uint64_t frames_ = 0;
  uint64_t plain_size_ = 0;
  std::unique_ptr<Client_IO_Base::Reader> reader_;

  std::mutex lock_;
  std::string page_;          // guarded by lock_
  uint64_t page_number_ = 0;  // guarded by lock_; meaningful while page_ is not empty
};

}  // namespace MTF_BACKUP
