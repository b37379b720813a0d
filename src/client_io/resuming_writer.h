#pragma once

#include <deque>
#include <memory>
#include <string>

#include "client_io/client_io_base.h"
#include "client_io/patience.h"

namespace client_io {

/// The writer of Retrying_Client_IO; the contract is that of Client_IO_Base::Writer.
class Resuming_Writer : public Client_IO_Base::Writer {
 public:
  /// @param patience  borrowed, outlives the writer.
  Resuming_Writer(std::unique_ptr<Writer> next, size_t buffer_size, Patience& patience);
  ~Resuming_Writer() override;

  bool write(const void* data, size_t n) override;
  bool commit() override;
  uint64_t size() const override { return settled_ + unsettled_size_; }

 private:
  bool run(const std::function<bool()>& step);
  bool write_again();
  bool append(const char* data, size_t n);
  bool make_room(size_t n);

  const std::unique_ptr<Writer> next_;
  const size_t buffer_size_;
  Patience& patience_;
  uint64_t settled_ = 0;               // bytes that the storage has for good
  std::deque<std::string> unsettled_;  // those behind them, in pieces
  size_t unsettled_size_ = 0;
  bool broken_ = false;  // next_ has failed and was not resumed yet
  int error_ = 0;        // the first final failure
};

}  // namespace client_io
