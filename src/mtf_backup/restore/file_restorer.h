#pragma once

#include <memory>
#include <string>

#include "mtf/core/restore_callback.h"
#include "mtf_backup/restore/entry_dresser.h"
#include "mtf_backup/restore/restore_job.h"
#include "mtf_backup/run/anchored_dir.h"
#include "mtf_backup/run/bounded_queue.h"
#include "mtf_backup/set/entry_reader.h"

namespace MTF_BACKUP {

/**
 * One of the threads that put files in place. A file is written under a temporary name and gets its own name once all
 * its bytes were found right. An entry that fails has a line at LM_ERROR; what stood under its name stays. Threads:
 * one.
 */
class File_Restorer {
 public:
  File_Restorer(Restore_Job& job, Bounded_Queue_T<Restore_Batch>& queue)
      : job_(job), queue_(queue), reader_(job.media) {}

  /// Works until the queue ends or the run is stopping.
  void run();

 private:
  bool restore(const Restore_Item& item);
  bool enter(const Target& target);
  bool put_file(const Restore_Item& item, const MTF::Xattrs& attrs);
  bool write_temp(const std::string& temp, int got, uint64_t at, Frame_View& piece);
  bool skip_to(MTF::IFile_Writer& writer, uint64_t done, uint64_t to);
  bool put_special(const Restore_Item& item, const MTF::Xattrs& attrs);
  bool clear_way(const std::string& name);
  void failed(const Restore_Item& item, int error);

  Restore_Job& job_;
  Bounded_Queue_T<Restore_Batch>& queue_;
  MTF::IRestore_Callback_var callback_;
  std::unique_ptr<Entry_Dresser> dresser_;
  Entry_Reader reader_;
  const Target_Root* root_ = nullptr;  // of dir_
  std::string directory_;
  Anchored_Dir dir_;
};

}  // namespace MTF_BACKUP
