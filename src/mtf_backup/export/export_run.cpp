#include "mtf_backup/export/export_run.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "mtf_backup/export/mtf_format.h"
#include "mtf_backup/export/tar_format.h"
#include "mtf_backup/run/progress_reporter.h"
#include "mtf_backup/run/run_threads.h"
#include "mtf_backup/set/set_path.h"
#include "mtf_backup/set/set_store.h"

namespace MTF_BACKUP {

Export_Run::Export_Run(const Export_Settings& settings, MTF::Event_Handler_var handler)
    : settings_(settings), handler_(handler), sink_(settings.fd) {
  if (settings.form == EXPORT_MTF)
    format_ = std::make_unique<MTF_Format>(sink_);
  else
    format_ = std::make_unique<Tar_Format>(sink_);
}

Export_Run::~Export_Run() = default;

MTF::Error_Code Export_Run::run(const std::string& dir) {
  if (!settings_.channel_factory) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to start the export: no channel factory.\n")));
    return MTF::E_FAILED;
  }
  storage_ = settings_.channel_factory->storage();
  if (!storage_) return MTF::E_FAILED;
  const auto stop = [this] { storage_->cancel(); };
  const bool found = run_step(state_, handler_, nullptr, stop, [&] { return find_set(dir); });
  return found ? write_set(dir) : state_.code();
}

MTF::Error_Code Export_Run::write_set(const std::string& dir) {
  const Stored_Object* const object = record_.find("catalog");
  Frame_Workers workers(Frame_Workers::for_reading());
  if (!workers.open()) return MTF::E_FAILED;
  Medium_Set media(*settings_.channel_factory, record_, dir, workers);
  Catalog_Reader catalog(*storage_, dir, record_.set_uuid, object ? object->size : 0);
  state_.total = record_.summary.total_size;
  Progress_Reporter progress(handler_, state_, "export");
  {
    Run_Threads threads(state_, nullptr, [&] {
      storage_->cancel();
      media.cancel();
    });
    threads.start([&] { write(catalog, media); });
    progress.watch(threads);
  }
  if (state_.code() != MTF::E_OK) return state_.code();
  progress.finish();
  if (damaged_) return MTF::E_CORRUPT;
  return left_out_ > 0 ? MTF::E_END_WITH_SKIPPED_FILES : MTF::E_OK;
}

MTF::Error_Code Export_Run::find_set(const std::string& dir) {
  if (Set_Store(storage_).read(dir, record_)) return MTF::E_OK;
  if (errno == EBADMSG) return MTF::E_CORRUPT;
  return errno == ENOENT ? MTF::E_NOT_FOUND : MTF::E_OPEN_MEDIA;
}

void Export_Run::write(Catalog_Reader& catalog, Medium_Set& media) {
  if (!catalog.open()) return state_.fail(errno == EBADMSG || errno == ENOENT ? MTF::E_CORRUPT : MTF::E_OPEN_MEDIA);
  Entry_Reader reader(media);
  if (put(format_->begin(record_))) write_entries(catalog, reader);
  if (!state_.stopping()) complete_ = put(format_->end());
}

void Export_Run::write_entries(Catalog_Reader& catalog, Entry_Reader& reader) {
  Catalog_Entry entry;
  int got = 0;
  while (!state_.stopping() && (got = catalog.next(entry)) > 0) {
    const uint64_t before = state_.processed;
    if (entry.source >= record_.sources.size()) {
      if (!leave_out(entry, "it lies in no source of the set")) return;
    } else if (!write_entry(entry, reader)) {
      return;
    }
    // The total counts files with their holes, and each of their names.
    if (!entry.is_directory()) state_.processed = before + entry.stat.size;
  }
  if (got < 0 && !state_.stopping()) state_.fail(errno == EBADMSG ? MTF::E_CORRUPT : MTF::E_OPEN_MEDIA);
}

/// False: the run ends, and knows why; here and below.
bool Export_Run::write_entry(const Catalog_Entry& entry, Entry_Reader& reader) {
  if (entry.flags & CAT_SKIPPED) return leave_out(entry, entry.reason.c_str());
  // Who unpacks it may not look at names.
  if (!has_plain_names(entry.path) || leads_elsewhere(record_.sources[entry.source]))
    return leave_out(entry, "not a plain path");
  if (leads_elsewhere(entry.hard_link_target)) return leave_out(entry, "its other name is not a plain path");
  if (lost_names_.contains(entry.hard_link_target))
    return leave_out(entry, "the file that it is a name of is left out");
  if (!reader.open(entry)) return leave_out_damaged(entry);
  Export_Entry exported;
  exported.entry = reader.block();
  exported.entry.path = entry.path;
  exported.entry.stat = entry.stat;
  exported.entry.link_target = entry.link_target;
  exported.entry.hard_link_target = entry.hard_link_target;
  if (!format_->takes(exported.entry)) return leave_out(entry, "there is no place for a socket");
  if (S_ISREG(entry.stat.mode) && entry.hard_link_target.empty()) {
    exported.size = reader.file_size();
    if (!find_damage(entry, reader, exported)) return leave_out_damaged(entry);
    if (entry.data_size < exported.size && !find_extents(entry, reader, exported)) return leave_out_damaged(entry);
  }
  if (!has_source_ || source_ != entry.source) {
    has_source_ = true;
    source_ = entry.source;
    if (!put(format_->source(record_.sources[source_]))) return false;
  }
  // The first piece is read before anything is written: a damaged file that has no other is left out as a whole.
  Frame_View piece;
  uint64_t at = 0;
  int got = reader.next(at, piece);
  if (got < 0) return leave_out_damaged(entry);
  if (!put(format_->entry(exported))) return false;
  ++entries_;
  if (entry.flags & CAT_BARE)
    ACE_ERROR((LM_WARNING, ACE_TEXT("%C is incomplete: %C.\n"), shown(entry).c_str(), missing_text(entry).c_str()));
  const uint64_t before = state_.processed;
  for (; got > 0; got = reader.next(at, piece)) {
    if (state_.stopping() || !put(format_->data(at, {piece.data(), piece.size()}))) return false;
    state_.processed = before + at + piece.size();
  }
  if (got == 0) return put(format_->end_entry());
  if (state_.stopping()) return false;
  ACE_ERROR((LM_ERROR, ACE_TEXT("The export ends in %C, whose data cannot be read.\n"), shown(entry).c_str()));
  state_.fail(errno == EBADMSG ? MTF::E_CORRUPT : MTF::E_OPEN_MEDIA);
  return false;
}

/// Takes over what the medium notes of a file that could not be backed up whole, and names it.
bool Export_Run::find_damage(const Catalog_Entry& entry, Entry_Reader& reader, Export_Entry& exported) {
  if (!(entry.flags & CAT_CORRUPT)) return true;
  if (!reader.damage(exported.damage, exported.valid_size)) return false;
  ACE_ERROR((LM_WARNING, ACE_TEXT("%C %C: from byte %Q on it is filled with zeros.\n"), shown(entry).c_str(),
             printable(entry.reason).c_str(), exported.valid_size));
  return true;
}

/// Reads a file with holes once to see where it has data, since that is told in front of the data; then opens it again.
bool Export_Run::find_extents(const Catalog_Entry& entry, Entry_Reader& reader, Export_Entry& exported) {
  exported.sparse = true;
  Frame_View piece;
  uint64_t at = 0;
  int got;
  while ((got = reader.next(at, piece)) > 0) {
    if (exported.extents.empty() || exported.extents.back().at + exported.extents.back().size != at)
      exported.extents.push_back({at, 0});
    exported.extents.back().size += piece.size();
    if (state_.stopping()) {
      errno = ECANCELED;
      return false;
    }
  }
  return got == 0 && reader.open(entry);
}

/// Passes on whether the output took it.
bool Export_Run::put(bool written) {
  if (!written) state_.fail(MTF::E_WRITE_TO_STORAGE);
  return written;
}

bool Export_Run::leave_out(const Catalog_Entry& entry, const char* why) {
  note_left_out(entry);
  ACE_ERROR((LM_WARNING, ACE_TEXT("%C is left out: %C.\n"), shown(entry).c_str(), printable(why).c_str()));
  return true;
}

/// What is damaged, and has been told, is left out; any other failure of the storage ends the run.
bool Export_Run::leave_out_damaged(const Catalog_Entry& entry) {
  const int error = errno;
  if (state_.stopping()) return false;
  if (error != EBADMSG && error != EIO) {
    state_.fail(is_resource_error(error) ? MTF::E_FAILED : MTF::E_OPEN_MEDIA);
    return false;
  }
  damaged_ = true;
  note_left_out(entry);
  ACE_ERROR((LM_ERROR, ACE_TEXT("%C is left out: its data in the set is damaged.\n"), shown(entry).c_str()));
  return true;
}

/// Its further names, which come later, are left out too.
void Export_Run::note_left_out(const Catalog_Entry& entry) {
  ++left_out_;
  if (entry.stat.nlink > 1 && entry.hard_link_target.empty() && entry.source < record_.sources.size())
    lost_names_.insert(path_in_set(record_.sources[entry.source], entry.path));
}

std::string Export_Run::shown(const Catalog_Entry& entry) const {
  return printable(entry.source < record_.sources.size() ? path_in_set(record_.sources[entry.source], entry.path)
                                                         : entry.path);
}

}  // namespace MTF_BACKUP
