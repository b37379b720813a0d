#pragma once

#include <list>

#include "mtf/core/backup_callback.h"
#include "mtf/fs/filebuf.h"

/// Reads files of the local filesystem. One thread at a time.
class K8S_File_Reader_CB : public MTF::IFile_Reader {
 public:
  K8S_File_Reader_CB();

  /// A regular file; a final link is not followed.
  MTF::Error_Code open(const char* path) override;
  bool is_open() const override { return is_open_; }
  /// The end of the file is E_FAILED too, with errno 0.
  MTF::Error_Code read(MTF::Buffer& buf) override;
  /// Always E_OK and nothing else: the file is closed by the next open() or with the reader, and is_open() stays as it
  /// was.
  MTF::Error_Code close() override;
  bool next_data(ACE_UINT64 from, ACE_UINT64& begin, ACE_UINT64& end) override;

 private:
  MTF_FS::ifilebuf fb_;
  bool is_open_ = false;
};

/// Shows the local filesystem to a backup. Threads: holds no data, any number of them.
class K8S_Backup_Callback : public MTF::IBackup_Callback {
 public:
  char directory_separator() const override { return '/'; }
  /// Owner and group names stay as they are: ownership is stored by number. False, with errno ENOENT whatever the
  /// failure was.
  bool lstat(const char* path, MTF::Callback_Stat& st) override;
  ssize_t readlink(const char* path, char* buf, size_t size) override;
  MTF::IFile_Reader_var make_file_reader() override;
  /// A directory that cannot be opened looks like an empty one, and one that cannot be read to its end like a smaller
  /// one, but for errno: see check_directory(). False, with errno ENOENT, at the first entry that has gone meanwhile.
  bool read_dirs(const char* path, std::list<Directory_Entry>& entries) override;
};

class K8S_Backup_Callback_Factory : public MTF::IBackup_Callback_Factory {
 public:
  MTF::IBackup_Callback_var make() override;
};
