#pragma once

#include <atomic>
#include <string>

#include "client_io/client_io_base.h"

/**
 * The driver of "file://": objects are files below a directory.
 *
 * A writer fills ".unfinished-<random>" beside the final name; commit() syncs it, gives it its name and syncs the
 * directories, up to the root for those that were newly made. Directories are made with mode 0700, files with 0600. The
 * root itself is made by the first create(). Links below the root are not followed.
 *
 * A writer holds a lock on its file, by which sweep() knows that it lives.
 */
class TESSARIN_API File_Client_IO : public Client_IO_Base {
 public:
  /// @param root  absolute path of a directory.
  File_Client_IO(const std::string& root, const Options& options);
  ~File_Client_IO() override;

  std::unique_ptr<Writer> create(const std::string& key) override;
  std::unique_ptr<Reader> open(const std::string& key) override;
  bool list(const std::string& prefix, const List_Callback& each) override;
  bool remove(const std::string& key) override;
  bool sweep(const std::string& prefix) override;
  void cancel() override { canceled_ = true; }

 private:
  const std::string root_;
  const bool overwrite_;
  const bool flush_;
  std::atomic<bool> canceled_{false};
};
