#include "client_io/file_writer.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "client_io/file_tree.h"
#include "client_io/object_key.h"
#include "client_io/patience.h"
#include "kolt/rename_new.h"

namespace client_io {

namespace {

constexpr mode_t file_mode = 0600;
constexpr uint64_t writeback_step = uint64_t(1) << 20;

std::string random_name() {
  unsigned char bytes[12];
  if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) return {};
  std::string name(unfinished_mark);
  for (const unsigned char byte : bytes) name += "0123456789abcdefghijklmnopqrstuv"[byte % 32];
  return name;
}

}  // namespace

File_Writer::~File_Writer() {
  discard();
}

bool File_Writer::begin() {
  // A file made here may be swept before it is locked, and where locks do not work its directory as well; then once
  // more from the start.
  for (int attempt = 0; attempt < 100; ++attempt) {
    if (make_places()) return true;
    discard();
    if (errno != ENOENT) return false;
  }
  return false;
}

// New directories are synced once they hold the file, so that nobody removes them as empty on the way.
bool File_Writer::make_places() {
  const std::string_view directory = directory_part(settings_.key);
  const Posix_Fd root = open_root(settings_.root, true);
  if (!root) return false;
  bool made = false;
  {
    const Tree_Lock keep(root.get(), LOCK_SH);
    directory_ = make_directory(root.get(), directory, made);
    if (!directory_ || !make_unfinished()) return false;
  }
  return !made || sync_directories(root.get(), directory);
}

// The lock says that the writer lives. A sweep that was quicker has unlinked the file, which its link count shows.
bool File_Writer::make_unfinished() {
  const std::string name = random_name();
  if (name.empty()) return false;
  file_.reset(openat(directory_.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, file_mode));
  if (!file_) return false;
  unfinished_ = name;
  flock(file_.get(), LOCK_EX);  // where locks do not work nothing is ever swept, see File_Client_IO::sweep()
  struct stat st;
  if (fstat(file_.get(), &st) != 0) return false;
  device_ = st.st_dev;
  inode_ = st.st_ino;
  if (st.st_nlink > 0) return true;
  errno = ENOENT;
  return false;
}

bool File_Writer::is_usable() {
  errno = committed_ ? EINVAL : error_;
  return errno == 0;
}

bool File_Writer::write(const void* data, size_t n) {
  if (!is_usable()) return false;
  if (!put(static_cast<const char*>(data), n)) return fail("write");
  start_writeback();
  return true;
}

bool File_Writer::put(const char* data, size_t n) {
  while (n > 0) {
    if (*settings_.canceled) {
      errno = ECANCELED;
      return false;
    }
    const ssize_t put = ::write(file_.get(), data, n);
    if (put < 0 && errno == EINTR) continue;
    if (put == 0) errno = EIO;
    if (put <= 0) return false;
    data += put;
    n -= static_cast<size_t>(put);
    size_ += static_cast<uint64_t>(put);
  }
  return true;
}

// Lets the disk work while more comes, so that the sync at the end has little left to do.
void File_Writer::start_writeback() {
  if (!settings_.flush || size_ - writeback_ < writeback_step) return;
  sync_file_range(file_.get(), static_cast<off64_t>(writeback_), static_cast<off64_t>(size_ - writeback_),
                  SYNC_FILE_RANGE_WRITE);  // only a hint: a failure comes back from fsync
  writeback_ = size_;
}

bool File_Writer::settle(uint64_t n) {
  if (!is_usable()) return false;
  if (!settings_.flush) return true;  // then nobody asks what became of the bytes
  const int flags = SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
  const off64_t from = static_cast<off64_t>(settled_);
  if (sync_file_range(file_.get(), from, static_cast<off64_t>(n) - from, flags) != 0) return fail("write");
  settled_ = n;
  return true;
}

// A failed sync may have dropped what was not settled, so all of that is written again.
int64_t File_Writer::resume(uint64_t settled) {
  if (closed_) {
    error_ = 0;
    return static_cast<int64_t>(size_);
  }
  const off_t offset = static_cast<off_t>(settled);
  if (!file_ || ftruncate(file_.get(), offset) != 0 || lseek(file_.get(), offset, SEEK_SET) != offset) {
    if (!file_) errno = ENOTSUP;
    return -1;
  }
  size_ = settled_ = settled;
  writeback_ = std::min(writeback_, settled);
  error_ = 0;
  return offset;
}

bool File_Writer::commit() {
  if (!is_usable()) return false;
  if (*settings_.canceled) {
    errno = ECANCELED;
    return fail("commit");
  }
  if ((!closed_ && !sync_and_close()) || !publish()) return fail("commit");
  return true;
}

// Closed before it gets its name: some filesystems tell of a failed write only here. The second descriptor keeps the
// lock, so that no sweep takes the file for a dead one until it has its name.
bool File_Writer::sync_and_close() {
  if (settings_.flush && fsync(file_.get()) != 0) return false;
  lock_.reset(fcntl(file_.get(), F_DUPFD_CLOEXEC, 0));
  if (!lock_) return false;
  closed_ = ::close(file_.release()) == 0;
  return closed_;
}

bool File_Writer::publish() {
  const std::string name(last_part(settings_.key));
  if (unfinished_ != name && !give_name(name)) return false;
  unfinished_ = name;  // until it is durable it is taken back on failure
  if (settings_.flush && fsync(directory_.get()) != 0) return false;
  committed_ = true;
  lock_.reset();
  return true;
}

// A network filesystem may have renamed the file and yet have told of a failure.
bool File_Writer::give_name(const std::string& name) {
  const int renamed = settings_.overwrite
                          ? renameat(directory_.get(), unfinished_.c_str(), directory_.get(), name.c_str())
                          : rename_new(directory_.get(), unfinished_.c_str(), name.c_str());
  if (renamed == 0) return true;
  const int error = errno;
  const bool has = has_name(name);
  if (has) unlinkat(directory_.get(), unfinished_.c_str(), 0);  // where it was linked
  errno = error;
  return has;
}

bool File_Writer::has_name(const std::string& name) const {
  struct stat st;
  return fstatat(directory_.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && st.st_dev == device_ &&
         st.st_ino == inode_;
}

bool File_Writer::fail(const char* operation) {
  error_ = errno;
  if (error_ != ECANCELED) log_failure(operation, settings_.key, settings_.root);
  if (!may_pass(error_, Patience::WRITING)) discard();
  errno = error_;
  return false;
}

// Also where there is no file yet: directories may have been made for it.
void File_Writer::discard() {
  if (committed_) return;
  const int error = errno;
  if (!unfinished_.empty()) unlinkat(directory_.get(), unfinished_.c_str(), 0);
  unfinished_.clear();
  file_.reset();
  lock_.reset();
  if (const Posix_Fd root = open_root(settings_.root, false))
    prune_directories(root.get(), directory_part(settings_.key));
  errno = error;
}

}  // namespace client_io
