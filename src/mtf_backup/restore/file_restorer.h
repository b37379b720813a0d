#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mtf/core/restore_callback.h"
#include "mtf/core/set_reader.h"
#include "mtf_backup/restore/entry_dresser.h"
#include "mtf_backup/restore/restore_job.h"
#include "mtf_backup/run/anchored_dir.h"
#include "mtf_backup/run/bounded_queue.h"
#include "mtf_backup/set/data_hash.h"

namespace MTF_BACKUP {

/**
 * One of the threads that put files in place. A file is written under a temporary name and gets its own name once all
 * its bytes were found right. An entry that fails has a line at LM_ERROR; what stood under its name stays. Threads:
 * one.
 */
class File_Restorer {
 public:
  File_Restorer(Restore_Job& job, Bounded_Queue_T<Restore_Batch>& queue) : job_(job), queue_(queue) {}

  /// Works until the queue ends or the run is stopping.
  void run();

 private:
  /// What the medium tells about an entry.
  struct On_Medium {
    MTF::Entry entry;
    MTF::File_Data data;
  };

  bool restore(const Restore_Item& item);
  bool enter(const Target& target);
  bool read_block(const Catalog_Entry& entry, On_Medium& block);
  bool put_file(const Restore_Item& item, const On_Medium& block);
  bool write_temp(const Restore_Item& item, const On_Medium& block, const std::string& temp, Frame_View& piece);
  bool put_special(const Restore_Item& item, const On_Medium& block);
  bool next_piece(const Catalog_Entry& entry, const On_Medium& block, uint64_t done, Frame_View& piece);
  bool clear_way(const std::string& name);
  void failed(const Restore_Item& item, int error);
  MTF::Set_Reader* reader_of(unsigned channel, Medium_Reader*& medium);

  Restore_Job& job_;
  Bounded_Queue_T<Restore_Batch>& queue_;
  MTF::IRestore_Callback_var callback_;
  std::unique_ptr<Entry_Dresser> dresser_;
  std::vector<std::unique_ptr<MTF::Set_Reader>> readers_;  // by channel
  Data_Hash hash_;
  const Target_Root* root_ = nullptr;  // of dir_
  std::string directory_;
  Anchored_Dir dir_;
};

}  // namespace MTF_BACKUP
