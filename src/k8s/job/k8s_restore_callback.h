#pragma once

#include "mtf/core/restore_callback.h"
#include "mtf/fs/filebuf.h"

/// Writes files of the local filesystem. One thread at a time.
class K8S_File_Writer_CB : public MTF::File_Writer_Base {
 public:
  K8S_File_Writer_CB();

  /// Makes or empties the file, mode 0640; a final link is not followed. @a size is ignored.
  MTF::Error_Code open(const char* path, ACE_UINT64 size) override;
  bool is_open() const override { return is_open_; }
  MTF::Error_Code write(const char* buf, size_t size) override;
  /// Always E_OK: an error is told by flush() before it. is_open() stays as it was.
  MTF::Error_Code close() override;
  MTF::Error_Code flush() override;
  MTF::Error_Code skip_to(ACE_UINT64 offset) override;

 private:
  MTF_FS::ofilebuf ofb_;
  bool is_open_ = false;
};

/// Makes entries of the local filesystem. Threads: holds no data, any number of them.
class K8S_Restore_Callback : public MTF::Restore_Callback_Base {
 public:
  char directory_separator() const override { return '/'; }
  bool mkdir_p(const char* path) override;
  /// E_OK also where something with that name exists, which is then left as it is.
  MTF::Error_Code symlink(const char* target, const char* linkpath) override;
  /// Here an existing name is a failure.
  MTF::Error_Code link(const char* oldpath, const char* newpath) override;
  /// Mode, unless it is 0 and through a final link, and then owner, of the link itself. Always E_OK: a failed owner is
  /// logged, a failed mode is not.
  MTF::Error_Code set_stat(const char* path, const MTF::Callback_Stat& st) override;
  MTF::IFile_Writer_var make_file_writer() override;
};

class K8S_Restore_Callback_Factory : public MTF::IRestore_Callback_Factory {
 public:
  MTF::IRestore_Callback_var make() override;
};
