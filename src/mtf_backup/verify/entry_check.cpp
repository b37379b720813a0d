#include "mtf_backup/verify/entry_check.h"

#include <algorithm>
#include <cerrno>

#include "mtf_backup/set/frame.h"
#include "mtf_backup/set/set_path.h"

namespace MTF_BACKUP {

std::string shown_path(const Commit_Record& record, const Catalog_Entry& entry) {
  return entry.source < record.sources.size() ? path_in_set(record.sources[entry.source], entry.path) : entry.path;
}

void Entry_Check::run() {
  Entry_Batch batch;
  while (queue_.pop(batch))
    for (const Catalog_Entry& entry : batch) {
      if (job_.state.stopping()) return;
      check(entry);
    }
  for (const uint32_t channel : channels_) read_frames(channel, UINT64_MAX);
}

void Entry_Check::check(const Catalog_Entry& entry) {
  const uint64_t first = entry.offset >> frame_shift;
  if (entry.set == 0) read_frames(entry.channel, first);
  if (read(entry)) {
    // The data begins behind the block, so all frames up to this one have been seen.
    uint64_t& next = next_frames_[entry.channel];
    if (entry.set == 0) next = std::max(next, (entry.offset + entry.data_size) >> frame_shift);
  } else if (go_on(errno)) {
    job_.findings.hit(shown_path(job_.record, entry), job_.media.name(entry.set, entry.channel), entry.offset);
  }
}

/// False with errno.
bool Entry_Check::read(const Catalog_Entry& entry) {
  if (!reader_.open(entry)) return false;
  Frame_View piece;
  uint64_t at = 0;
  int got;
  while ((got = reader_.next(at, piece)) > 0)
    if (job_.state.stopping()) {
      errno = ECANCELED;
      return false;
    }
  return got == 0;
}

/// Reads the frames of a medium up to @a end that were not read yet. Damage is told by whoever finds it.
void Entry_Check::read_frames(uint32_t channel, uint64_t end) {
  uint64_t& next = next_frames_[channel];
  if (next >= end) return;
  const Medium_Reader_var medium = job_.media.get(0, channel);
  if (!medium) return (void)go_on(errno);
  end = std::min(end, (medium->size() + frame_size - 1) >> frame_shift);
  for (; next < end && !job_.state.stopping(); ++next) {
    Frame_View view;
    if (!medium->view(next << frame_shift, 1, view) && !go_on(errno)) return;
  }
}

/// Whether a failure is one of this place only. Otherwise the run ends.
bool Entry_Check::go_on(int error) {
  if (error == EBADMSG || error == EIO || error == ENOENT) return true;
  if (!job_.state.stopping()) job_.state.fail(is_resource_error(error) ? MTF::E_FAILED : MTF::E_OPEN_MEDIA);
  return false;
}

}  // namespace MTF_BACKUP
