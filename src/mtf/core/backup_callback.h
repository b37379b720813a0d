#pragma once

#include <sys/types.h>

#include <list>
#include <string>

#include "ace/OS_NS_sys_stat.h"
#include "ace/Recursive_Thread_Mutex.h"
#include "ace/Refcounted_Auto_Ptr.h"
#include "kolt/directory_entry.h"
#include "kolt/export.h"
#include "mtf/core/buffer.h"
#include "mtf/core/callback_stat.h"
#include "mtf/core/error_code.h"

// What the data mover asks of whoever knows the files to back up. The order of the virtual operations is fixed: new
// ones come last.

namespace MTF {

struct File_Blk;
class ISource_Lister;
typedef ACE_Refcounted_Auto_Ptr<ISource_Lister, ACE_Recursive_Thread_Mutex> ISource_Lister_var;

/// One directory that a backup reads.
struct source_entry {
  std::string path;  ///< as it was given to the backup
};

/// Reads one file after the other. One thread at a time.
class TESSARIN_API IFile_Reader {
 public:
  virtual ~IFile_Reader();

  virtual Error_Code open(const char* path) = 0;
  virtual bool is_open() const = 0;
  /// Fills @a buf as far as the file goes and sets its used_size(). At the end of the file, as on an error, E_FAILED:
  /// errno is 0 at a clean end and tells the error otherwise.
  virtual Error_Code read(Buffer& buf) = 0;
  virtual Error_Code close() = 0;
  /// A place to change the block of a file before it is written. The base does nothing and returns E_OK, and the data
  /// mover does not call it.
  virtual Error_Code handle_file_blk(File_Blk& block, unsigned long& flags, Callback_Stat& st);

  /// Finds the first data at or behind @a from, up to the next hole or the end of the file; the next read begins there.
  /// At the end, true with begin and end equal. False, with errno, on an error, and the next read begins at @a from;
  /// the base does not know holes: ENOTSUP. The data mover asks only where a file takes less room than its size.
  virtual bool next_data(ACE_UINT64 from, ACE_UINT64& begin, ACE_UINT64& end);
};

typedef ACE_Refcounted_Auto_Ptr<IFile_Reader, ACE_Recursive_Thread_Mutex> IFile_Reader_var;

/// Shows a source's tree. Threads: holds no state of its own; the data mover may call it from several threads.
class TESSARIN_API IBackup_Callback {
 public:
  virtual ~IBackup_Callback();

  virtual char directory_separator() const = 0;
  /// False, with errno, where there is no such entry. A link is not followed.
  virtual bool lstat(const char* path, Callback_Stat& st) = 0;
  /// As readlink(2): bytes written to @a buf, without a NUL; -1 with errno.
  virtual ssize_t readlink(const char* path, char* buf, size_t size) = 0;
  /// Empty, with errno, where there is no memory.
  virtual IFile_Reader_var make_file_reader() = 0;
  /// Something that lists the source in place of the walk by read_dirs. The base has none, and the data mover walks.
  virtual ISource_Lister_var make_source_lister(const source_entry& source);
  /// Appends what the directory holds, without "." and "..", in no order. False with errno on an error; what was found
  /// by then stays in @a entries. A directory that cannot be opened, or read to its end, may look like one that holds
  /// less: errno, 0 before the call, then says why after true.
  virtual bool read_dirs(const char* path, std::list<Directory_Entry>& entries) = 0;
  /// A source's walk begins. The base does nothing.
  virtual void handle_source_entry_begin(const source_entry& source);
  /// A source's walk has ended. The base does nothing.
  virtual void handle_source_entry_end(const source_entry& source, bool ok);
  /// The walk of all sources has ended. The base does nothing.
  virtual void handle_source_produce_end();
  /// Where progress counts files and their number is unknown: so many files make one percent. The base says 1000.
  virtual ACE_UINT64 file_count_one_percent();
  /// ... and never more percent than this before the end. The base says 99.
  virtual int max_file_count_percent();

  /// All extended attributes, sorted by name, in place of what @a attrs held; a link is not followed. True with none
  /// where the filesystem knows none; false with errno on an error.
  virtual bool read_xattrs(const char* path, Xattrs& attrs);
  /// Whether a directory can be opened for reading, since read_dirs shows an unreadable one as empty; else errno.
  virtual bool check_directory(const char* path);
  /// lstat with all that the system tells, nanoseconds included; the true errno on failure.
  virtual bool full_lstat(const char* path, ACE_stat& st);
};

typedef ACE_Refcounted_Auto_Ptr<IBackup_Callback, ACE_Recursive_Thread_Mutex> IBackup_Callback_var;

class TESSARIN_API IBackup_Callback_Factory {
 public:
  virtual ~IBackup_Callback_Factory();
  /// Empty, with errno, where there is no memory. May be called by any thread.
  virtual IBackup_Callback_var make() = 0;
};

typedef ACE_Refcounted_Auto_Ptr<IBackup_Callback_Factory, ACE_Recursive_Thread_Mutex> IBackup_Callback_Factory_var;

}  // namespace MTF
