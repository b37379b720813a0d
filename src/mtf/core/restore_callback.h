#pragma once

#include <ctime>
#include <string>

#include "ace/Basic_Types.h"
#include "ace/Recursive_Thread_Mutex.h"
#include "ace/Refcounted_Auto_Ptr.h"
#include "kolt/export.h"
#include "mtf/core/callback_stat.h"
#include "mtf/core/error_code.h"

// What the data mover asks of whoever writes restored files. The order of the virtual operations is fixed: new ones
// come last. Every operation that fails returns E_FAILED (or false) with errno.

namespace MTF {

/// Writes one file after the other. One thread at a time.
class TESSARIN_API IFile_Writer {
 public:
  virtual ~IFile_Writer();

  /// Makes or empties the file. @a size is what will be written, for writers that like to know.
  virtual Error_Code open(const char* path, ACE_UINT64 size) = 0;
  virtual bool is_open() const = 0;
  /// All of @a buf or E_FAILED.
  virtual Error_Code write(const char* buf, size_t size) = 0;
  /// Where the next write goes, in bytes from the start.
  virtual Error_Code seek(unsigned long offset) = 0;
  virtual Error_Code truncate(unsigned long size) = 0;
  virtual Error_Code close() = 0;

  /// Hands all that was written to the system and tells errors that would come late, as at a close. Call it before
  /// close(), which may keep an error to itself.
  virtual Error_Code flush() = 0;
  /// Makes the file @a offset bytes long, with a hole behind what was written, and goes on there. Only forward.
  virtual Error_Code skip_to(ACE_UINT64 offset) = 0;
};

typedef ACE_Refcounted_Auto_Ptr<IFile_Writer, ACE_Recursive_Thread_Mutex> IFile_Writer_var;

/// A writer of one stretch of bytes: seek, truncate and skip_to fail with ENOTSUP, and flush, for a writer that keeps
/// nothing back, is E_OK.
class TESSARIN_API File_Writer_Base : public IFile_Writer {
 public:
  Error_Code seek(unsigned long offset) override;
  Error_Code truncate(unsigned long size) override;
  Error_Code flush() override;
  Error_Code skip_to(ACE_UINT64 offset) override;
};

/// Makes entries. Threads: as IBackup_Callback.
class TESSARIN_API IRestore_Callback {
 public:
  virtual ~IRestore_Callback();

  virtual char directory_separator() const = 0;
  /// Removes an entry that is no directory. One that is not there is E_OK.
  virtual Error_Code unlink(const char* path) = 0;
  /// Makes a directory and those above it. True where it is there already.
  virtual bool mkdir_p(const char* path) = 0;
  virtual Error_Code symlink(const char* target, const char* linkpath) = 0;
  virtual Error_Code link(const char* oldpath, const char* newpath) = 0;
  /// A FIFO, socket or device of the type, mode and rdev in @a st.
  virtual Error_Code mknod(const char* path, const Callback_Stat& st) = 0;
  /// Permission bits and owner. Tells no failure. The data mover does not call it: the mode goes through a final link,
  /// which whoever lives in the target may plant at any time, and set-uid bits would stand before the owner. It calls
  /// set_owner() and set_mode().
  virtual Error_Code set_stat(const char* path, const Callback_Stat& st) = 0;
  /// Times of a directory in whole seconds. The third, the change time, is the system's own and is ignored. The data
  /// mover calls set_times().
  virtual Error_Code set_dir_time(const char* path, unsigned long atime, unsigned long mtime, unsigned long ctime) = 0;
  /// A new empty file, mode 0600, beside @a path, with its path in @a temp.
  virtual Error_Code mktemp(const char* path, std::string& temp) = 0;
  /// Empty, with errno, where there is no memory.
  virtual IFile_Writer_var make_file_writer() = 0;

  /// Sets each attribute; a link is not followed. Tries all of them; E_FAILED with the first errno where one failed.
  virtual Error_Code set_xattrs(const char* path, const Xattrs& attrs) = 0;
  /// Both times to the nanosecond; a link is not followed.
  virtual Error_Code set_times(const char* path, const timespec& atime, const timespec& mtime) = 0;
  /// All twelve mode bits; a link is not followed and not changed, which is E_OK: links have no mode. Goes after the
  /// owner, whose change takes set-uid and set-gid away.
  virtual Error_Code set_mode(const char* path, unsigned int mode) = 0;
  /// Owner; a link is not followed. Unlike set_stat, it tells a failure. Logs nothing.
  virtual Error_Code set_owner(const char* path, unsigned int uid, unsigned int gid) = 0;
  /// Replaces @a to where it exists.
  virtual Error_Code rename(const char* from, const char* to) = 0;
  /// Takes an extended attribute away; a link is not followed. One that is not there is E_OK.
  virtual Error_Code remove_xattr(const char* path, const char* name) = 0;
};

/// All that is the same for every POSIX filesystem. Paths are used as they are, so that "/proc/self/fd/N/name" works:
/// no operation follows a final link.
class TESSARIN_API Restore_Callback_Base : public IRestore_Callback {
 public:
  Error_Code unlink(const char* path) override;
  Error_Code mknod(const char* path, const Callback_Stat& st) override;
  Error_Code set_dir_time(const char* path, unsigned long atime, unsigned long mtime, unsigned long ctime) override;
  Error_Code mktemp(const char* path, std::string& temp) override;
  Error_Code set_xattrs(const char* path, const Xattrs& attrs) override;
  Error_Code set_times(const char* path, const timespec& atime, const timespec& mtime) override;
  Error_Code set_mode(const char* path, unsigned int mode) override;
  Error_Code set_owner(const char* path, unsigned int uid, unsigned int gid) override;
  Error_Code rename(const char* from, const char* to) override;
  Error_Code remove_xattr(const char* path, const char* name) override;
};

typedef ACE_Refcounted_Auto_Ptr<IRestore_Callback, ACE_Recursive_Thread_Mutex> IRestore_Callback_var;

class TESSARIN_API IRestore_Callback_Factory {
 public:
  virtual ~IRestore_Callback_Factory();
  /// Empty, with errno, where there is no memory. May be called by any thread.
  virtual IRestore_Callback_var make() = 0;
};

typedef ACE_Refcounted_Auto_Ptr<IRestore_Callback_Factory, ACE_Recursive_Thread_Mutex> IRestore_Callback_Factory_var;

}  // namespace MTF
