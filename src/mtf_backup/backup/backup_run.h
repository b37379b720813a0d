#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mtf/core/cat_summary.h"
#include "mtf/core/event_handler.h"
#include "mtf_backup/backup/base_merge.h"
#include "mtf_backup/backup/channel_writer.h"
#include "mtf_backup/backup/entry_collector.h"
#include "mtf_backup/backup/read_ahead.h"
#include "mtf_backup/backup_settings.h"
#include "mtf_backup/run/bounded_queue.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/set/catalog_writer.h"
#include "mtf_backup/set/frame_workers.h"
#include "mtf_backup/set/set_store.h"

namespace MTF_BACKUP {

/**
 * One backup from the check of its settings to the commit record.
 *
 * A walk, `channel_num` channels and the workers that compress run side by side; the calling thread asks for a cancel
 * and reports. All that may wait for the storage runs on other threads. Whatever ends the run early, nothing of the set
 * remains in the pool. Threads: one; the settings are borrowed.
 */
class Backup_Run {
 public:
  Backup_Run(const Backup_Settings& settings, MTF::Event_Handler_var handler, ACE_Log_Msg_Callback* log_callback);

  /// As MTF_Backup::backup().
  [[nodiscard]] MTF::Error_Code run(const std::string& name);

  const MTF::Cat_Summary& summary() const { return record_.summary; }
  /// Not where the cancel came too late for the set.
  bool canceled() const { return state_.canceled() && !committed_; }

 private:
  bool check(const std::string& name) const;
  bool open_sources();
  bool make_clients();
  MTF::Error_Code open_storage(const std::string& name);
  void open_base(const std::string& name);
  bool make_channels();
  MTF::Error_Code open_channels();
  bool move_data();
  bool run_channel(Channel_Writer& channel, Bounded_Queue_T<Work_Batch_var>& queue, Read_Ahead& read_ahead,
                   Entry_Collector& collector);
  bool commit();
  MTF::Error_Code write_record();
  std::vector<Stored_Object> finished_objects() const;
  bool step(const std::function<MTF::Error_Code()>& body);
  void cancel_clients();
  void clean_up();
  MTF::Error_Code result() const;

  const Backup_Settings& settings_;
  MTF::Event_Handler_var handler_;
  ACE_Log_Msg_Callback* const log_callback_;
  Run_State state_;
  std::vector<Source> sources_;
  // One per channel. The first has catalog and commit record too.
  std::vector<std::shared_ptr<Client_IO_Base>> clients_;
  std::unique_ptr<Set_Store> store_;
  Set_Id id_;
  Commit_Record record_;
  Base_Set base_set_;
  std::unique_ptr<Base_Merge> base_;  // null: a full set
  std::unique_ptr<Backup_Job> job_;
  std::unique_ptr<Frame_Workers> workers_;
  std::unique_ptr<Catalog_Writer> catalog_;
  std::vector<std::unique_ptr<Channel_Writer>> channels_;
  bool has_files_ = false;
  bool has_losses_ = false;
  bool committed_ = false;  // from here on nothing ends the run early
};

}  // namespace MTF_BACKUP
