#include "k8s/job/k8s_restore_callback.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "k8s/job/file_buffer.h"
#include "kolt/dir_size.h"
#include "mtf/fs/mkdir_p.h"
#include "mtf/fs/unix/util.h"

K8S_File_Writer_CB::K8S_File_Writer_CB() : ofb_(k8s_file_buffer_size) {}

MTF::Error_Code K8S_File_Writer_CB::open(const char* path, ACE_UINT64) {
  is_open_ = ofb_.open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, k8s_file_mode) == 0;
  return is_open_ ? MTF::E_OK : MTF::E_FAILED;
}

MTF::Error_Code K8S_File_Writer_CB::write(const char* buf, size_t size) {
  const std::streamsize n = static_cast<std::streamsize>(size);
  return ofb_.sputn(buf, n) == n ? MTF::E_OK : MTF::E_FAILED;
}

MTF::Error_Code K8S_File_Writer_CB::close() {
  ofb_.close();
  return MTF::E_OK;
}

MTF::Error_Code K8S_File_Writer_CB::flush() {
  return ofb_.pubsync() == 0 ? MTF::E_OK : MTF::E_FAILED;
}

MTF::Error_Code K8S_File_Writer_CB::skip_to(ACE_UINT64 offset) {
  return ofb_.skip_to(offset) ? MTF::E_OK : MTF::E_FAILED;
}

bool K8S_Restore_Callback::mkdir_p(const char* path) {
  return is_directory(path) || MTF_FS::mkdir_p(path);
}

MTF::Error_Code K8S_Restore_Callback::symlink(const char* target, const char* linkpath) {
  return ::symlink(target, linkpath) == 0 || errno == EEXIST ? MTF::E_OK : MTF::E_FAILED;
}

MTF::Error_Code K8S_Restore_Callback::link(const char* oldpath, const char* newpath) {
  return ::link(oldpath, newpath) == 0 ? MTF::E_OK : MTF::E_FAILED;
}

MTF::Error_Code K8S_Restore_Callback::set_stat(const char* path, const MTF::Callback_Stat& st) {
  if (st.mode != 0) ::chmod(path, static_cast<mode_t>(st.mode));
  MTF_FS::set_file_owner(path, static_cast<unsigned int>(st.uid), static_cast<unsigned int>(st.gid));
  return MTF::E_OK;
}

MTF::IFile_Writer_var K8S_Restore_Callback::make_file_writer() {
  K8S_File_Writer_CB* writer = new (std::nothrow) K8S_File_Writer_CB;
  if (writer == nullptr) errno = ENOMEM;
  return MTF::IFile_Writer_var(writer);
}

MTF::IRestore_Callback_var K8S_Restore_Callback_Factory::make() {
  K8S_Restore_Callback* callback = new (std::nothrow) K8S_Restore_Callback;
  if (callback == nullptr) errno = ENOMEM;
  return MTF::IRestore_Callback_var(callback);
}
