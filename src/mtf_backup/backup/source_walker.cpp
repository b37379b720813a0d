#include "mtf_backup/backup/source_walker.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "ace/Log_Msg.h"
#include "kolt/directory_reader.h"
#include "kolt/printable.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t max_items = 256;
constexpr uint64_t max_size = uint64_t(4) << 20;
constexpr uint64_t stat_block = 512;  // unit of st_blocks
constexpr size_t max_told = 16;       // directories that are read ahead
constexpr int list_attempts = 3;

/// A path is held in about so many places: in the batch, in the entry that comes of it, in what the older set has of
/// it.
constexpr uint64_t copies_of_path = 4;

bool by_name(const Directory_Entry& a, const Directory_Entry& b) {
  return a.name < b.name;
}

}  // namespace

Source_Walker::Source_Walker(const std::vector<Source>& sources, MTF::IBackup_Callback_Factory_var factory,
                             Base_Merge* base, Bounded_Queue_T<Work_Batch_var>& queue, Read_Ahead& read_ahead,
                             Run_State& state)
    : sources_(sources),
      factory_(factory),
      base_(base),
      queue_(queue),
      read_ahead_(read_ahead),
      state_(state),
      batch_(std::make_shared<Work_Batch>()) {}

void Source_Walker::run() {
  callback_ = factory_->make();
  if (!callback_) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to make a backup callback: %m\n")));
    return state_.fail(MTF::E_FAILED);
  }
  for (uint32_t source = 0; source < sources_.size(); ++source) {
    const MTF::source_entry entry{sources_[source].path};
    callback_->handle_source_entry_begin(entry);
    const bool ok = walk(source);
    callback_->handle_source_entry_end(entry, ok);
    if (!ok) return;
  }
  callback_->handle_source_produce_end();
  if (flush()) queue_.close();
}

bool Source_Walker::walk(uint32_t source) {
  path_.clear();
  if (!visit(source, sources_[source].stat)) return false;
  while (!levels_.empty()) {
    Level& level = levels_.back();
    path_.resize(level.path_size);
    if (level.waiting.empty()) {
      levels_.pop_back();
      continue;
    }
    const Subdirectory next = std::move(level.waiting.back());
    level.waiting.pop_back();
    if (level.told > 0) --level.told;
    path_ = join_names(path_, next.name);
    if (!visit(source, next.stat)) return false;
    tell_next(source);
  }
  return true;
}

/// Of the directories that come next, those that are known: what lies below them is not.
void Source_Walker::tell_next(uint32_t source) {
  if (!read_ahead_.wanted()) return;
  size_t ahead = 0;
  for (auto level = levels_.rbegin(); level != levels_.rend() && ahead < max_told; ++level) {
    const size_t size = level->waiting.size();
    const size_t end = std::min(size, max_told - ahead);
    for (; level->told < end; ++level->told) {
      const Subdirectory& next = level->waiting[size - 1 - level->told];
      read_ahead_.directory(source, join_names(path_.substr(0, level->path_size), next.name));
    }
    ahead += end;
  }
}

bool Source_Walker::visit(uint32_t source, const MTF::Entry_Stat& stat) {
  if (state_.stopping()) return false;
  Listing listing;
  Work_Item item;
  if (!read_directory(source, listing, item.problem)) return !state_.stopping();
  item.source = source;
  item.directory = std::make_shared<const std::string>(path_);
  item.stat = stat;
  std::shared_ptr<const std::string> directory = item.directory;
  if (!add(std::move(item))) return false;

  read_ahead_.note(waits_.waited(listing.entries.size() + 1));
  Level level;
  level.path_size = path_.size();
  listing.entries.sort(by_name);
  // What is replaced while its directory is read may be listed twice.
  listing.entries.unique([](const Directory_Entry& a, const Directory_Entry& b) { return a.name == b.name; });
  if (!add_files(source, listing, directory, level.waiting)) return false;
  if (!level.waiting.empty()) levels_.push_back(std::move(level));
  return true;
}

/// False: it has vanished, or the run is stopping. Whatever else keeps it from being listed is its problem.
bool Source_Walker::read_directory(uint32_t source, Listing& listing, std::string& problem) {
  const auto shown = [&] { return printable(path_in_set(sources_[source].path, path_)); };
  if (path_.size() > max_path_size) {
    problem = "its path is too long";
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list a directory, its path is too long: %C\n"), shown().c_str()));
    return true;
  }
  if (open_directory(source) && callback_->check_directory(dir_.path("")) && list(listing)) return true;
  const int error = errno;
  if (state_.stopping()) return false;
  if (is_resource_error(error)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list directory %C: %C\n"), shown().c_str(), std::strerror(error)));
    state_.fail(MTF::E_GET_SOURCE_DATA);
    return false;
  }
  if (is_gone(error) && !path_.empty()) {
    ACE_ERROR((LM_WARNING, ACE_TEXT("Directory %C vanished and is left out.\n"), shown().c_str()));
    return false;
  }
  problem = std::strerror(error);
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list directory %C: %C\n"), shown().c_str(), problem.c_str()));
  listing = Listing();
  return true;
}

bool Source_Walker::open_directory(uint32_t source) {
  if (!dir_.open(sources_[source].root.get(), path_)) return false;
  dir_.enter();
  return true;
}

bool Source_Walker::list(Listing& listing) {
  for (int i = 0; i < list_attempts && !state_.stopping(); ++i) {
    listing.entries.clear();
    // An entry that vanishes between its name and its status makes the whole call fail. A directory that cannot be
    // opened or read to its end is none: it looks like one that holds less, but for errno.
    errno = 0;
    if (callback_->read_dirs(dir_.path(""), listing.entries) && errno == 0) return true;
  }
  return list_one_by_one(listing);
}

/// For a directory in which something vanishes all the time, or that the callback cannot read.
bool Source_Walker::list_one_by_one(Listing& listing) {
  listing.entries.clear();
  Directory_Reader reader;
  if (!reader.open(dir_.path(""), nullptr, false, 0)) return false;
  Directory_Entry entry;
  while (!state_.stopping()) {
    if (!reader.read(entry)) {
      errno = reader.last_error();
      if (entry.name.empty() || is_resource_error(errno)) return errno == 0;
      listing.errors[entry.name] = errno;
      entry.stat = {};
    }
    listing.entries.push_back(entry);
  }
  return false;
}

bool Source_Walker::add_files(uint32_t source, Listing& listing, const std::shared_ptr<const std::string>& directory,
                              std::vector<Subdirectory>& subdirectories) {
  std::list<Directory_Entry>& entries = listing.entries;
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
    if (S_ISDIR(entry->stat.st_mode)) subdirectories.push_back({std::move(entry->name), MTF::entry_stat(entry->stat)});
  for (Directory_Entry& entry : entries) {
    if (S_ISDIR(entry.stat.st_mode)) continue;
    Work_Item item;
    item.source = source;
    item.directory = directory;
    item.name = std::move(entry.name);
    item.stat = MTF::entry_stat(entry.stat);
    item.may_have_holes = static_cast<uint64_t>(entry.stat.st_blocks) * stat_block < item.stat.size;
    item.problem = problem_of(item, listing);
    if (item.stat.nlink > 1)
      item.hard_link_target =
          links_.first_name(item.stat, birth_of(item), path_in_set(sources_[source].path, item.path()));
    if (!add(std::move(item))) return false;
  }
  return true;
}

/// Why its status cannot be read; empty: it has been.
std::string Source_Walker::problem_of(const Work_Item& item, const Listing& listing) const {
  const auto error = listing.errors.find(item.name);
  if (error == listing.errors.end()) return std::string();
  const std::string problem = std::strerror(error->second);
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to back up %C: %C\n"),
             printable(path_in_set(sources_[item.source].path, item.path())).c_str(), problem.c_str()));
  return problem;
}

/// Of a file in the directory being visited. None where the filesystem does not tell, or tells 0 for want of one.
std::optional<MTF::Timestamp> Source_Walker::birth_of(const Work_Item& item) const {
  struct statx found;
  const bool known = ::statx(dir_.fd(), item.name.c_str(), AT_SYMLINK_NOFOLLOW, STATX_INO | STATX_BTIME, &found) == 0 &&
                     (found.stx_mask & STATX_BTIME) != 0 && found.stx_btime.tv_sec != 0 &&
                     found.stx_ino == item.stat.ino;
  if (!known) return std::nullopt;
  return MTF::Timestamp{found.stx_btime.tv_sec, found.stx_btime.tv_nsec};
}

bool Source_Walker::add(Work_Item item) {
  const uint64_t full_size = item.name.empty() ? 0 : item.stat.size;
  if (base_ && item.problem.empty()) item.kept = base_->keep(item);
  const uint64_t size = (item.kept ? 0 : full_size) + copies_of_path * item.path_size();
  // A big file goes alone: what comes behind it need not wait for it.
  if (!batch_->items.empty() && batch_size_ + size > max_size && !flush()) return false;
  state_.total += full_size;
  batch_size_ += size;
  batch_->items.push_back(std::move(item));
  return batch_->items.size() < max_items && batch_size_ < max_size ? true : flush();
}

bool Source_Walker::flush() {
  if (batch_->items.empty()) return true;
  if (read_ahead_.wanted()) read_ahead_.files(batch_);
  const uint64_t next = batch_->number + 1;
  if (!queue_.push(std::exchange(batch_, std::make_shared<Work_Batch>()))) return false;
  batch_->number = next;
  batch_size_ = 0;
  return true;
}

}  // namespace MTF_BACKUP
