#pragma once

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <string>

#include "client_io/client_io_base.h"
#include "kolt/posix_fd.h"

namespace client_io {

/// The writer of the "file://" driver; the contract is that of Client_IO_Base::Writer.
class File_Writer : public Client_IO_Base::Writer {
 public:
  struct Settings {
    std::string root;
    std::string key;
    bool overwrite;
    bool flush;
    const std::atomic<bool>* canceled;
  };

  explicit File_Writer(Settings settings) : settings_(std::move(settings)) {}
  ~File_Writer() override;

  /// Makes the directories and the unfinished file. False with errno, not logged.
  bool begin();

  bool write(const void* data, size_t n) override;
  bool commit() override;
  uint64_t size() const override { return size_; }
  bool settle(uint64_t n) override;
  int64_t resume(uint64_t settled) override;

 private:
  bool make_places();
  bool make_unfinished();
  bool put(const char* data, size_t n);
  void start_writeback();
  bool sync_and_close();
  bool publish();
  bool give_name(const std::string& name);
  bool has_name(const std::string& name) const;
  bool is_usable();
  bool fail(const char* operation);
  void discard();

  const Settings settings_;
  Posix_Fd directory_;
  Posix_Fd file_;
  Posix_Fd lock_;           // of file_, once that is closed
  std::string unfinished_;  // name in directory_; empty when there is none
  dev_t device_ = 0;
  ino_t inode_ = 0;
  bool closed_ = false;  // whole, synced and closed
  bool committed_ = false;
  uint64_t size_ = 0;
  uint64_t settled_ = 0;
  uint64_t writeback_ = 0;  // up to here the kernel was told to start writing
  int error_ = 0;           // the first failure
};

}  // namespace client_io
