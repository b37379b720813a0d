#include "k8s/job/k8s_backup_callback.h"

#include <fcntl.h>

#include <cerrno>
#include <new>
#include <utility>

#include "ace/OS_NS_unistd.h"
#include "k8s/job/file_buffer.h"
#include "kolt/directory_iterator.h"
#include "kolt/path.h"
#include "mtf/fs/unix/util.h"

K8S_File_Reader_CB::K8S_File_Reader_CB() : fb_(k8s_file_buffer_size) {}

MTF::Error_Code K8S_File_Reader_CB::open(const char* path) {
  is_open_ = fb_.open(path, O_RDONLY | O_CLOEXEC, k8s_file_mode) == 0;
  return is_open_ ? MTF::E_OK : MTF::E_FAILED;
}

MTF::Error_Code K8S_File_Reader_CB::read(MTF::Buffer& buf) {
  const std::streamsize n = fb_.sgetn(buf.addr(), buf.size());
  if (n <= 0) return MTF::E_FAILED;
  buf.used_size(static_cast<ACE_UINT32>(n));
  return MTF::E_OK;
}

MTF::Error_Code K8S_File_Reader_CB::close() {
  return MTF::E_OK;
}

bool K8S_File_Reader_CB::next_data(ACE_UINT64 from, ACE_UINT64& begin, ACE_UINT64& end) {
  return fb_.next_data(from, begin, end);
}

bool K8S_Backup_Callback::lstat(const char* path, MTF::Callback_Stat& st) {
  ACE_stat found;
  if (MTF_FS::lstat(path, &found) != 0) {
    errno = ENOENT;
    return false;
  }
  st.gid = found.st_gid;
  st.uid = found.st_uid;
  st.mode = found.st_mode;
  st.dev = found.st_dev;
  st.ino = found.st_ino;
  st.nlink = found.st_nlink;
  st.rdev = found.st_rdev;
  st.size = static_cast<ACE_UINT64>(found.st_size);
  st.blksize = static_cast<ACE_UINT64>(found.st_blksize);
  st.blocks = static_cast<ACE_UINT64>(found.st_blocks);
  st.atime = static_cast<ACE_UINT64>(found.st_atime);
  st.mtime = static_cast<ACE_UINT64>(found.st_mtime);
  st.ctime = static_cast<ACE_UINT64>(found.st_ctime);
  return true;
}

ssize_t K8S_Backup_Callback::readlink(const char* path, char* buf, size_t size) {
  return ACE_OS::readlink(path, buf, size);
}

MTF::IFile_Reader_var K8S_Backup_Callback::make_file_reader() {
  K8S_File_Reader_CB* reader = new (std::nothrow) K8S_File_Reader_CB;
  if (reader == nullptr) errno = ENOMEM;
  return MTF::IFile_Reader_var(reader);
}

bool K8S_Backup_Callback::read_dirs(const char* path, std::list<Directory_Entry>& entries) {
  for (const Directory_Entry& found : iterate_directory(path)) {
    ACE_stat st;
    if (MTF_FS::lstat(kolt::Path(path, found.name, '/', false).c_str(), &st) != 0) {
      errno = ENOENT;
      return false;
    }
    Directory_Entry entry;
    entry.name = found.name;
    entry.stat = st;
    entries.push_back(std::move(entry));
  }
  return true;
}

MTF::IBackup_Callback_var K8S_Backup_Callback_Factory::make() {
  K8S_Backup_Callback* callback = new (std::nothrow) K8S_Backup_Callback;
  if (callback == nullptr) errno = ENOMEM;
  return MTF::IBackup_Callback_var(callback);
}
