#pragma once

#include <memory>
#include <string_view>

#include "mtf/core/byte_sink.h"

namespace MTF_BACKUP {

/// Writes a stream to a descriptor, which is borrowed. Errors: false with errno after one line at LM_ERROR, for good.
/// Threads: one at a time.
class File_Sink : public MTF::Byte_Sink {
 public:
  explicit File_Sink(int fd);

  [[nodiscard]] bool space(char*& at, size_t& avail) override;
  [[nodiscard]] bool advance(size_t n) override;
  uint64_t offset() const override { return offset_; }

  [[nodiscard]] bool put(std::string_view bytes);
  /// Writes what is still in memory.
  [[nodiscard]] bool flush();

 private:
  const int fd_;
  std::unique_ptr<char[]> buffer_;
  size_t filled_ = 0;
  uint64_t offset_ = 0;
  int error_ = 0;
};

}  // namespace MTF_BACKUP
