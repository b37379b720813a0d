#include "mtf_backup/backup/channel_writer.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <ctime>
#include <utility>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "mtf/core/own_streams.h"
#include "mtf_backup/backup/link_table.h"

namespace MTF_BACKUP {

namespace {

bool same_content(const MTF::Entry_Stat& a, const MTF::Entry_Stat& b) {
  return a.size == b.size && a.mtime == b.mtime && a.ctime == b.ctime && inode_of(a) == inode_of(b);
}

}  // namespace

Channel_Writer::Channel_Writer(const Backup_Job& job, Client_IO_Base& storage, const Medium_Id& id, int level,
                               Frame_Workers& workers)
    : job_(job),
      channel_(id.channel),
      medium_(storage, id, level, workers),
      writer_(medium_),
      copier_(writer_, job.state) {}

bool Channel_Writer::fail(MTF::Error_Code code) {
  job_.state.fail(code);
  return false;
}

std::string Channel_Writer::shown(const Work_Item& item) const {
  return printable(path_in_set(job_.sources[item.source].path, item.path()));
}

bool Channel_Writer::open() {
  callback_ = job_.factory->make();
  if (!callback_) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to make a backup callback: %m\n")));
    return fail(MTF::E_FAILED);
  }
  if (!medium_.open()) return fail(MTF::E_OPEN_MEDIA);
  return writer_.begin(job_.header) || fail(MTF::E_WRITE_TO_STORAGE);
}

bool Channel_Writer::finish() {
  directory_.reset();
  dir_.close();
  return (writer_.end() && medium_.finish()) || fail(MTF::E_WRITE_TO_STORAGE);
}

bool Channel_Writer::write(Work_Batch& batch, Batch_Result& result) {
  result.number = batch.number;
  result.entries.reserve(batch.items.size());
  for (Work_Item& item : batch.items) {
    if (job_.state.stopping()) return false;
    batch.reached.store(static_cast<size_t>(&item - batch.items.data()), std::memory_order_relaxed);
    if (item.kept) {
      keep(item, result);
      continue;
    }
    Catalog_Entry entry;
    moved_ = false;
    const Outcome outcome = put(item, entry);
    if (outcome == STOPPED) return false;
    const bool saved = outcome == SAVED && !(entry.flags & CAT_SKIPPED) && !moved_;
    job_.state.files += saved && !S_ISDIR(item.stat.mode);
    if (!saved && item.stat.nlink > 1 && item.hard_link_target.empty())
      result.lost.push_back(path_in_set(job_.sources[item.source].path, item.path()));
    if (outcome == SAVED) result.entries.push_back(std::move(entry));
  }
  return true;
}

void Channel_Writer::keep(Work_Item& item, Batch_Result& result) {
  if (!item.kept->is_directory()) job_.state.processed += item.stat.size;
  result.entries.push_back(std::move(*item.kept));
}

Channel_Writer::Outcome Channel_Writer::put(const Work_Item& item, Catalog_Entry& entry) {
  entry.source = item.source;
  entry.path = item.path();
  entry.stat = item.stat;
  entry.channel = channel_;
  entry.hard_link_target = item.hard_link_target;
  if (!item.problem.empty()) {
    entry.flags = CAT_SKIPPED;
    entry.reason = item.problem;
    return SAVED;
  }
  MTF::Entry on_medium;
  on_medium.path = entry.path;
  on_medium.stat = entry.stat;
  on_medium.hard_link_target = entry.hard_link_target;
  if (!enter(item) || (S_ISLNK(item.stat.mode) && !read_link(item, entry.link_target))) return lost(item, errno, entry);
  on_medium.link_target = entry.link_target;
  if (item.hard_link_target.empty()) read_xattrs(item, on_medium.xattrs, entry);
  entry.xattr_hash = xattr_hash(on_medium.xattrs);

  if (volume_ != item.source) {
    volume_ = item.source;
    const MTF::Volume volume{job_.sources[item.source].path, job_.header.user, job_.header.time};
    if (!writer_.volume(volume)) return fail(MTF::E_WRITE_TO_STORAGE), STOPPED;
  }
  if (S_ISREG(item.stat.mode) && item.stat.size > 0 && item.hard_link_target.empty())
    return put_file(item, on_medium, entry);
  const bool ok =
      entry.is_directory() ? writer_.directory(on_medium) : writer_.begin_file(on_medium, 0) && writer_.end_file();
  if (!ok) return fail(MTF::E_WRITE_TO_STORAGE), STOPPED;
  entry.offset = writer_.offset();
  if (!entry.is_directory()) job_.state.processed += item.stat.size;
  return SAVED;
}

/// Goes to the directory in which the item lies. False with errno.
bool Channel_Writer::enter(const Work_Item& item) {
  if (directory_ == item.directory && directory_source_ == item.source) return true;
  directory_.reset();
  if (!dir_.open(job_.sources[item.source].root.get(), *item.directory)) return false;
  dir_.enter();
  directory_ = item.directory;
  directory_source_ = item.source;
  return true;
}

bool Channel_Writer::read_link(const Work_Item& item, std::string& target) {
  target.resize(PATH_MAX);
  const ssize_t size = callback_->readlink(dir_.path(item.name), target.data(), target.size());
  target.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
  return size >= 0;
}

void Channel_Writer::read_xattrs(const Work_Item& item, MTF::Xattrs& attrs, Catalog_Entry& entry) {
  const bool read = callback_->read_xattrs(dir_.path(item.name), attrs);
  if (read ? MTF::xattrs_size(attrs) <= MTF::entry_xattrs_max : errno == ENOENT) return;
  const char* why = read ? "they are too large" : std::strerror(errno);
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to read the extended attributes of %C: %C\n"), shown(item).c_str(), why));
  attrs.clear();
  entry.flags = CAT_BARE;
  entry.reason = read ? "its extended attributes are too large" : "its extended attributes could not be read";
}

Channel_Writer::Outcome Channel_Writer::put_file(const Work_Item& item, const MTF::Entry& on_medium,
                                                 Catalog_Entry& entry) {
  MTF::IFile_Reader_var reader = callback_->make_file_reader();
  if (!reader) return lost(item, ENOMEM, entry);
  errno = 0;
  if (reader->open(dir_.path(item.name)) != MTF::E_OK) return lost(item, errno ? errno : EIO, entry);

  File_Copy copy;
  if (!copier_.copy(*reader, on_medium, item.may_have_holes, copy)) return STOPPED;
  entry.offset = writer_.offset();
  entry.data_size = copy.data_size;
  entry.data_hash = copy.data_hash;
  check_read(item, copy, entry);
  return SAVED;
}

/// Flags a file whose data is not what the listing promised.
void Channel_Writer::check_read(const Work_Item& item, const File_Copy& copy, Catalog_Entry& entry) {
  if (copy.got < item.stat.size && copy.error) {
    entry.flags |= CAT_SKIPPED;
    entry.reason = std::strerror(copy.error);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to back up %C: reading stopped at byte %Q: %C\n"), shown(item).c_str(),
               copy.got, entry.reason.c_str()));
    return;
  }
  ACE_stat st;
  const bool there = callback_->full_lstat(dir_.path(item.name), st);
  const MTF::Entry_Stat now = there ? MTF::entry_stat(st) : MTF::Entry_Stat();
  moved_ = there && inode_of(now) != inode_of(item.stat);
  if (copy.got == item.stat.size && there && same_content(now, item.stat)) return;
  const bool is_cut = copy.got < item.stat.size;
  entry.flags |= is_cut ? CAT_CHANGED | CAT_CORRUPT : CAT_CHANGED;
  const std::string what = is_cut ? "became shorter while it was read" : "changed while it was read";
  entry.reason = entry.reason.empty() ? what : entry.reason + "; " + what;
  ACE_ERROR((LM_WARNING, ACE_TEXT("File %C %C.\n"), shown(item).c_str(), what.c_str()));
}

/// An entry that could not be opened or read.
Channel_Writer::Outcome Channel_Writer::lost(const Work_Item& item, int error, Catalog_Entry& entry) {
  if (is_resource_error(error)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to back up %C: %C\n"), shown(item).c_str(), std::strerror(error)));
    return fail(MTF::E_GET_SOURCE_DATA), STOPPED;
  }
  const uint64_t size = entry.is_directory() ? 0 : item.stat.size;
  ACE_stat st;
  const bool there = directory_ && callback_->full_lstat(dir_.path(item.name), st);
  const char* why = nullptr;
  if (there && (st.st_mode & S_IFMT) != (item.stat.mode & S_IFMT)) why = "became another type of entry";
  if (!there && is_gone(directory_ ? errno : error)) why = "vanished";
  if (why) {
    job_.state.total -= size;
    ACE_ERROR((LM_WARNING, ACE_TEXT("%C %C and is left out.\n"), shown(item).c_str(), why));
    return LEFT_OUT;
  }
  job_.state.processed += size;
  entry.flags |= CAT_SKIPPED;
  entry.reason = std::strerror(error);
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to back up %C: %C\n"), shown(item).c_str(), entry.reason.c_str()));
  return SAVED;
}

}  // namespace MTF_BACKUP
