#pragma once

#include <memory>
#include <string>

#include "mtf/core/restore_callback.h"
#include "mtf_backup/restore/entry_dresser.h"
#include "mtf_backup/restore/private_dir.h"
#include "mtf_backup/restore/restore_job.h"
#include "mtf_backup/run/anchored_dir.h"
#include "mtf_backup/run/bounded_queue.h"
#include "mtf_backup/set/entry_reader.h"

namespace MTF_BACKUP {

/**
 * One of the threads that put files in place. An entry of any kind is made and dressed in a private directory and gets
 * its name, in place of what stood there, once all of it was found right. One that fails has a line at LM_ERROR; what
 * stood under its name stays. The private directory goes when the thread comes to another directory, and at the end.
 * Threads: one.
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
  bool put(const Restore_Item& item, const MTF::Xattrs& attrs);
  bool enter_place();
  bool write_file(const std::string& temp, int got, uint64_t at, Frame_View& piece);
  bool skip_to(MTF::IFile_Writer& writer, uint64_t done, uint64_t to);
  bool make_special(const Catalog_Entry& entry, const std::string& name);
  bool is_as_told(const Catalog_Entry& entry, const std::string& name) const;
  void failed(const Restore_Item& item, int error);
  bool is_hopeless(const Restore_Item& item, int error) const;

  Restore_Job& job_;
  Bounded_Queue_T<Restore_Batch>& queue_;
  MTF::IRestore_Callback_var callback_;
  std::unique_ptr<Entry_Dresser> dresser_;
  Entry_Reader reader_;
  const Target_Root* root_ = nullptr;  // of dir_
  std::string directory_;
  Anchored_Dir dir_;
  Private_Dir place_;  // in dir_
};

}  // namespace MTF_BACKUP
