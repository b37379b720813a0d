#include "mtf_backup/backup/read_ahead.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <memory>
#include <new>
#include <system_error>
#include <utility>

#include "kolt/posix_fd.h"
#include "mtf_backup/run/anchored_dir.h"
#include "mtf_backup/run/disk_waits.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t thread_count = 8;
constexpr size_t max_tasks = 512;
constexpr size_t files_per_task = 16;
constexpr int patience = 64;                    // looks without a wait before it ends
constexpr size_t list_size = size_t(64) << 10;  // bytes of a directory that are sorted at once
constexpr uint64_t window = uint64_t(1) << 20;  // further on, the system's own reading ahead has begun

struct Listed {
  ino64_t inode;
  const char* name;
};

/// The names in @a list, in the order in which their inodes lie on the disk.
void sort_names(const char* list, size_t size, std::vector<Listed>& names) {
  names.clear();
  for (size_t at = 0; at < size;) {
    const dirent64* found = reinterpret_cast<const dirent64*>(list + at);
    names.push_back({found->d_ino, found->d_name});
    at += found->d_reclen;
  }
  std::sort(names.begin(), names.end(), [](const Listed& a, const Listed& b) { return a.inode < b.inode; });
}

void touch_file(int dir, const Work_Item& item) {
  const Posix_Fd file(::openat(dir, item.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file) return;
  (void)::flistxattr(file.get(), nullptr, 0);
  (void)::posix_fadvise(file.get(), 0, static_cast<off_t>(std::min(item.stat.size, window)), POSIX_FADV_WILLNEED);
}

bool is_to_be_read(const Work_Item& item) {
  return !item.kept && S_ISREG(item.stat.mode) && item.stat.size > 0 && item.hard_link_target.empty();
}

}  // namespace

Read_Ahead::Read_Ahead(const std::vector<Source>& sources, const Run_State& state, bool always)
    : sources_(sources), state_(state), always_(always) {}

Read_Ahead::~Read_Ahead() {
  std::vector<std::thread> threads;
  {
    std::lock_guard<std::mutex> guard(lock_);
    ending_ = true;
    task_came_.notify_all();
    threads.swap(threads_);
  }
  for (std::thread& thread : threads) thread.join();
}

void Read_Ahead::note(bool waited) {
  const int credit = credit_.load(std::memory_order_relaxed);
  if (waited)
    credit_.store(patience, std::memory_order_relaxed);
  else if (credit > 0)
    credit_.store(credit - 1, std::memory_order_relaxed);
}

void Read_Ahead::directory(uint32_t source, std::string path) {
  add([this, source, path = std::move(path)] { touch_directory(source, path); });
}

void Read_Ahead::files(const Work_Batch_var& batch) {
  const std::weak_ptr<const Work_Batch> waiting = batch;
  const size_t size = batch->items.size();
  for (size_t begin = 0; begin < size; begin += files_per_task)
    add([=, this] { touch_files(waiting, begin, std::min(begin + files_per_task, size)); });
}

void Read_Ahead::add(Task task) {
  std::lock_guard<std::mutex> guard(lock_);
  if (threads_.empty()) start_threads();
  if (tasks_.size() == max_tasks) tasks_.pop_front();
  tasks_.push_back(std::move(task));
  task_came_.notify_one();
}

/// With fewer threads than wished it is slower, and without any nothing is read ahead.
void Read_Ahead::start_threads() {
  threads_.reserve(thread_count);
  try {
    while (threads_.size() < thread_count) threads_.emplace_back([this] { run(); });
  } catch (const std::system_error&) {
  }
}

void Read_Ahead::run() {
  Disk_Waits waits;
  for (;;) {
    Task task;
    {
      std::unique_lock<std::mutex> guard(lock_);
      task_came_.wait(guard, [this] { return ending_ || !tasks_.empty(); });
      if (ending_) return;
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    try {
      task();
    } catch (const std::bad_alloc&) {
      continue;
    }
    note(waits.waited(files_per_task));
  }
}

void Read_Ahead::touch_directory(uint32_t source, const std::string& path) {
  Anchored_Dir dir;
  if (!dir.open(sources_[source].root.get(), path)) return;
  const Posix_Fd list(::openat(dir.fd(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!list) return;
  (void)::flistxattr(list.get(), nullptr, 0);
  const std::unique_ptr<char[]> buffer(new char[list_size]);
  std::vector<Listed> names;
  for (;;) {
    const ssize_t size = ::getdents64(list.get(), buffer.get(), list_size);
    if (size <= 0) return;
    sort_names(buffer.get(), static_cast<size_t>(size), names);
    for (const Listed& listed : names) {
      if (ending()) return;
      struct stat st;
      (void)::fstatat(list.get(), listed.name, &st, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT);
    }
  }
}

void Read_Ahead::touch_files(const std::weak_ptr<const Work_Batch>& waiting, size_t begin, size_t end) {
  const std::shared_ptr<const Work_Batch> batch = waiting.lock();
  if (!batch) return;
  Anchored_Dir dir;
  const std::string* open = nullptr;  // the directory that dir shows
  for (size_t i = begin; i < end && !ending(); ++i) {
    const Work_Item& item = batch->items[i];
    if (i < batch->reached.load(std::memory_order_relaxed) || !is_to_be_read(item)) continue;
    if (open != item.directory.get() && !dir.open(sources_[item.source].root.get(), *item.directory)) continue;
    open = item.directory.get();
    touch_file(dir.fd(), item);
  }
}

}  // namespace MTF_BACKUP
