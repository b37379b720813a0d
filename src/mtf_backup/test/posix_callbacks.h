#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <list>
#include <string>

#include "kolt/directory_iterator.h"
#include "mtf/core/backup_callback.h"
#include "mtf/core/restore_callback.h"
#include "mtf/fs/filebuf.h"
#include "mtf/fs/mkdir_p.h"

// The shortest callbacks that work on plain files, with hooks by which tests get in between.

namespace mover_test {

/// The bare name in a path that leads through a descriptor.
inline std::string name_of(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

/// Called with the operation ("open", "read", "read_dirs", "write", "rename", ...) and its path; true: the operation
/// fails with the errno that the hook has set. Threads: several at once.
typedef std::function<bool(const char* operation, const std::string& path)> Hook;

/// For a filesystem that knows no holes: files with them are read and written as zeros.
inline bool without_holes(const char* operation, const std::string&) {
  const bool about_holes = operation == std::string("next_data") || operation == std::string("skip_to");
  if (about_holes) errno = ENOTSUP;
  return about_holes;
}

/// In a counted pointer, which frees it where there is no memory for the count.
template <typename Callback>
ACE_Refcounted_Auto_Ptr<Callback, ACE_Recursive_Thread_Mutex> held(Callback* callback) {
  std::unique_ptr<Callback> kept(callback);
  ACE_Refcounted_Auto_Ptr<Callback, ACE_Recursive_Thread_Mutex> counted(callback);
  if (counted.get() != nullptr) (void)kept.release();
  return counted;
}

class Posix_Reader : public MTF::IFile_Reader {
 public:
  explicit Posix_Reader(const Hook& hook) : hook_(hook) {}
  MTF::Error_Code open(const char* path) override {
    path_ = path;
    if (hook_ && hook_("open", path_)) return MTF::E_FAILED;
    open_ = file_.open(path, O_RDONLY | O_CLOEXEC, 0640) == 0;
    return open_ ? MTF::E_OK : MTF::E_FAILED;
  }
  bool is_open() const override { return open_; }
  MTF::Error_Code read(MTF::Buffer& buf) override {
    if (hook_ && hook_("read", path_)) return MTF::E_FAILED;
    const std::streamsize got = file_.sgetn(buf.addr(), buf.size());
    if (got <= 0) return MTF::E_FAILED;
    buf.used_size(static_cast<ACE_UINT32>(got));
    return MTF::E_OK;
  }
  MTF::Error_Code close() override { return MTF::E_OK; }
  bool next_data(ACE_UINT64 from, ACE_UINT64& begin, ACE_UINT64& end) override {
    if (hook_ && hook_("next_data", path_)) return false;
    return file_.next_data(from, begin, end);
  }

 private:
  const Hook& hook_;
  MTF_FS::ifilebuf file_{131072};
  std::string path_;
  bool open_ = false;
};

class Posix_Backup_Callback : public MTF::IBackup_Callback {
 public:
  explicit Posix_Backup_Callback(const Hook& hook) : hook_(hook) {}
  char directory_separator() const override { return '/'; }
  bool lstat(const char*, MTF::Callback_Stat&) override { return false; }  // the mover asks for the full status
  ssize_t readlink(const char* path, char* buf, size_t size) override {
    if (hook_ && hook_("readlink", path)) return -1;
    return ::readlink(path, buf, size);
  }
  MTF::IFile_Reader_var make_file_reader() override { return held<MTF::IFile_Reader>(new Posix_Reader(hook_)); }
  bool read_dirs(const char* path, std::list<Directory_Entry>& entries) override {
    for (const Directory_Entry& entry : iterate_directory(path)) entries.push_back(entry);
    return !(hook_ && hook_("read_dirs", path));
  }
  bool read_xattrs(const char* path, MTF::Xattrs& attrs) override {
    if (hook_ && hook_("read_xattrs", path)) return false;
    return IBackup_Callback::read_xattrs(path, attrs);
  }
  bool check_directory(const char* path) override {
    return !(hook_ && hook_("check_directory", path)) && IBackup_Callback::check_directory(path);
  }

 private:
  const Hook& hook_;
};

class Posix_Backup_Factory : public MTF::IBackup_Callback_Factory {
 public:
  explicit Posix_Backup_Factory(Hook hook = Hook()) : hook_(std::move(hook)) {}
  MTF::IBackup_Callback_var make() override { return held<MTF::IBackup_Callback>(new Posix_Backup_Callback(hook_)); }

 private:
  const Hook hook_;
};

class Posix_Writer : public MTF::File_Writer_Base {
 public:
  explicit Posix_Writer(const Hook& hook) : hook_(hook) {}
  MTF::Error_Code open(const char* path, ACE_UINT64) override {
    path_ = path;
    open_ = file_.open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640) == 0;
    return open_ ? MTF::E_OK : MTF::E_FAILED;
  }
  bool is_open() const override { return open_; }
  MTF::Error_Code write(const char* buf, size_t size) override {
    if (hook_ && hook_("write", path_)) return MTF::E_FAILED;
    return file_.sputn(buf, static_cast<std::streamsize>(size)) == static_cast<std::streamsize>(size) ? MTF::E_OK
                                                                                                      : MTF::E_FAILED;
  }
  MTF::Error_Code flush() override {
    if (hook_ && hook_("flush", path_)) return MTF::E_FAILED;
    return file_.pubsync() == 0 ? MTF::E_OK : MTF::E_FAILED;
  }
  MTF::Error_Code close() override {
    file_.close();
    return MTF::E_OK;
  }
  MTF::Error_Code skip_to(ACE_UINT64 offset) override {
    if (hook_ && hook_("skip_to", path_)) return MTF::E_FAILED;
    return file_.skip_to(offset) ? MTF::E_OK : MTF::E_FAILED;
  }

 private:
  const Hook& hook_;
  MTF_FS::ofilebuf file_{131072};
  std::string path_;
  bool open_ = false;
};

class Posix_Restore_Callback : public MTF::Restore_Callback_Base {
 public:
  explicit Posix_Restore_Callback(const Hook& hook) : hook_(hook) {}
  char directory_separator() const override { return '/'; }
  bool mkdir_p(const char* path) override {
    if (hook_ && hook_("mkdir_p", path)) return false;
    return MTF_FS::mkdir_p(path);
  }
  // Where the hook stops one of these with errno 0 the operation says yes and does nothing.
  MTF::Error_Code symlink(const char* target, const char* linkpath) override {
    if (hook_ && hook_("symlink", linkpath)) return errno == 0 ? MTF::E_OK : MTF::E_FAILED;
    return ::symlink(target, linkpath) == 0 || errno == EEXIST ? MTF::E_OK : MTF::E_FAILED;
  }
  MTF::Error_Code link(const char* oldpath, const char* newpath) override {
    if (hook_ && hook_("link", newpath)) return MTF::E_FAILED;
    return ::link(oldpath, newpath) == 0 ? MTF::E_OK : MTF::E_FAILED;
  }
  MTF::Error_Code set_stat(const char*, const MTF::Callback_Stat&) override { return MTF::E_OK; }
  MTF::IFile_Writer_var make_file_writer() override { return held<MTF::IFile_Writer>(new Posix_Writer(hook_)); }
  MTF::Error_Code set_owner(const char* path, unsigned int uid, unsigned int gid) override {
    if (hook_ && hook_("set_owner", path)) return errno == 0 ? MTF::E_OK : MTF::E_FAILED;
    return Restore_Callback_Base::set_owner(path, uid, gid);
  }
  MTF::Error_Code set_mode(const char* path, unsigned int mode) override {
    if (hook_ && hook_("set_mode", path)) return errno == 0 ? MTF::E_OK : MTF::E_FAILED;
    return Restore_Callback_Base::set_mode(path, mode);
  }
  MTF::Error_Code set_xattrs(const char* path, const MTF::Xattrs& attrs) override {
    if (hook_ && hook_("set_xattrs", path)) return errno == 0 ? MTF::E_OK : MTF::E_FAILED;
    return Restore_Callback_Base::set_xattrs(path, attrs);
  }
  MTF::Error_Code set_times(const char* path, const timespec& atime, const timespec& mtime) override {
    if (hook_ && hook_("set_times", path)) return errno == 0 ? MTF::E_OK : MTF::E_FAILED;
    return Restore_Callback_Base::set_times(path, atime, mtime);
  }
  MTF::Error_Code rename(const char* from, const char* to) override {
    if (hook_ && hook_("rename", to)) return MTF::E_FAILED;
    return Restore_Callback_Base::rename(from, to);
  }

 private:
  const Hook& hook_;
};

class Posix_Restore_Factory : public MTF::IRestore_Callback_Factory {
 public:
  explicit Posix_Restore_Factory(Hook hook = Hook()) : hook_(std::move(hook)) {}
  MTF::IRestore_Callback_var make() override { return held<MTF::IRestore_Callback>(new Posix_Restore_Callback(hook_)); }

 private:
  const Hook hook_;
};

}  // namespace mover_test
