#include "client_io/file_client_io.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "client_io/file_tree.h"
#include "client_io/file_writer.h"
#include "client_io/object_key.h"

namespace client_io {

namespace {

class File_Reader : public Client_IO_Base::Reader {
 public:
  File_Reader(Posix_Fd file, uint64_t size, const std::string& key, const std::string& root,
              const std::atomic<bool>& canceled)
      : file_(std::move(file)), size_(size), key_(key), root_(root), canceled_(canceled) {}

  ssize_t read(uint64_t offset, void* to, size_t n) override {
    if (offset >= size_) return 0;
    n = static_cast<size_t>(std::min<uint64_t>(n, size_ - offset));
    size_t done = 0;
    while (done < n) {
      const ssize_t got = read_some(offset + done, static_cast<char*>(to) + done, n - done);
      if (got < 0) return -1;
      if (got == 0) break;  // cut short since it was opened
      done += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(done);
  }

  uint64_t size() const override { return size_; }

 private:
  ssize_t read_some(uint64_t offset, char* to, size_t n) const {
    for (;;) {
      if (canceled_) {
        errno = ECANCELED;
        return -1;
      }
      const ssize_t got = pread(file_.get(), to, n, static_cast<off_t>(offset));
      if (got >= 0) return got;
      if (errno == EINTR) continue;
      log_failure("read", key_, root_);
      return -1;
    }
  }

  const Posix_Fd file_;
  const uint64_t size_;
  const std::string key_;
  const std::string root_;
  const std::atomic<bool>& canceled_;
};

Posix_Fd open_file(const std::string& root, const std::string& key, struct stat& st) {
  const Posix_Fd top = open_root(root, false);
  const Posix_Fd dir = top ? open_directory(top.get(), directory_part(key)) : Posix_Fd();
  if (!dir) return Posix_Fd();
  // Not blocking: a FIFO in the place of an object must not hold the caller up.
  const int flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  Posix_Fd file(openat(dir.get(), std::string(last_part(key)).c_str(), flags));
  if (!file || fstat(file.get(), &st) != 0) return Posix_Fd();
  if (S_ISREG(st.st_mode)) return file;
  errno = S_ISDIR(st.st_mode) ? ENOENT : EINVAL;  // a directory is the beginning of other keys
  return Posix_Fd();
}

bool is_directory_key(std::string_view dir) {
  return is_key(dir.substr(0, dir.size() - 1));
}

// Whether keys below directory @a dir (empty, or ending in '/') can begin with @a prefix.
bool may_hold(const std::string& dir, const std::string& prefix) {
  const size_t n = std::min(dir.size(), prefix.size());
  return dir.compare(0, n, prefix, 0, n) == 0;
}

bool list_directory(int root, const std::string& dir, const std::string& prefix,
                    const Client_IO_Base::List_Callback& each) {
  std::vector<Tree_Name> names;
  if (!read_names(root, dir, names)) return false;
  for (const Tree_Name& found : names) {
    const std::string key = dir + found.name;
    if (!may_hold(key, prefix)) continue;
    if (found.is_directory()) {
      if (is_directory_key(key) && !list_directory(root, key, prefix, each)) return false;
    } else if (key.size() >= prefix.size() && is_key(key) && !each({key, found.size})) {
      errno = ECANCELED;
      return false;
    }
  }
  return true;
}

// Removes the file of a writer that is gone: nobody holds its lock.
bool remove_dead(int root, const std::string& dir, const std::string& name) {
  const Posix_Fd parent = open_directory(root, dir);
  const int flags = O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  const Posix_Fd file(parent ? openat(parent.get(), name.c_str(), flags) : -1);
  if (!file) return errno == ENOENT;
  if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) return true;
  return unlinkat(parent.get(), name.c_str(), 0) == 0 || errno == ENOENT;
}

bool sweep_directory(int root, const std::string& dir, const std::string& prefix) {
  std::vector<Tree_Name> names;
  if (!read_names(root, dir, names)) return false;
  const bool inside = dir.size() >= prefix.size();
  for (const Tree_Name& found : names) {
    const std::string key = dir + found.name;
    if (found.is_directory()) {
      if (may_hold(key, prefix) && is_directory_key(key) && !sweep_directory(root, key, prefix)) return false;
    } else if (inside && found.name.starts_with(unfinished_mark) && !remove_dead(root, dir, found.name)) {
      return false;
    }
  }
  if (inside && !dir.empty()) prune_directories(root, std::string_view(dir).substr(0, dir.size() - 1));
  return true;
}

}  // namespace

}  // namespace client_io

using namespace client_io;

File_Client_IO::File_Client_IO(const std::string& root, const Options& options)
    : root_(root), overwrite_(options.overwrite), flush_(options.flush_after_write) {}

File_Client_IO::~File_Client_IO() = default;

std::unique_ptr<Client_IO_Base::Writer> File_Client_IO::create(const std::string& key) {
  if (!check_key("create", key, root_)) return nullptr;
  if (canceled_) {
    errno = ECANCELED;
    return nullptr;
  }
  std::unique_ptr<File_Writer> writer(new (std::nothrow) File_Writer({root_, key, overwrite_, flush_, &canceled_}));
  if (!writer) errno = ENOMEM;
  if (writer && writer->begin()) return writer;
  log_failure("create", key, root_);
  return nullptr;
}

std::unique_ptr<Client_IO_Base::Reader> File_Client_IO::open(const std::string& key) {
  if (!check_key("open", key, root_)) return nullptr;
  struct stat st;
  Posix_Fd file = open_file(root_, key, st);
  if (!file) {
    if (errno != ENOENT) log_failure("open", key, root_);
    return nullptr;
  }
  const uint64_t size = static_cast<uint64_t>(st.st_size);
  std::unique_ptr<Reader> reader(new (std::nothrow) File_Reader(std::move(file), size, key, root_, canceled_));
  if (!reader) {
    errno = ENOMEM;
    log_failure("open", key, root_);
  }
  return reader;
}

bool File_Client_IO::list(const std::string& prefix, const List_Callback& each) {
  const Posix_Fd root = open_root(root_, false);
  if (!root && errno == ENOENT) return true;
  if (root && list_directory(root.get(), "", prefix, each)) return true;
  if (errno != ECANCELED) log_failure("list", prefix, root_);
  return false;
}

bool File_Client_IO::remove(const std::string& key) {
  if (!check_key("remove", key, root_)) return false;
  const Posix_Fd root = open_root(root_, false);
  const Posix_Fd dir = root ? open_directory(root.get(), directory_part(key)) : Posix_Fd();
  if (!dir && errno == ENOENT) return true;
  const bool removed = dir && (unlinkat(dir.get(), std::string(last_part(key)).c_str(), 0) == 0 || errno == ENOENT) &&
                       (!flush_ || fsync(dir.get()) == 0);
  if (removed)
    prune_directories(root.get(), directory_part(key));
  else
    log_failure("remove", key, root_);
  return removed;
}

bool File_Client_IO::sweep(const std::string& prefix) {
  const Posix_Fd root = open_root(root_, false);
  if (!root && errno == ENOENT) return true;
  if (root && sweep_directory(root.get(), "", prefix)) return true;
  log_failure("sweep", prefix, root_);
  return false;
}
