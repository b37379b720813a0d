#pragma once

#include <memory>
#include <string>

#include "mtf/core/cat_summary.h"
#include "mtf/core/error_code.h"
#include "mtf/core/event_handler.h"
#include "mtf_backup/log_msg_callback.h"
#include "mtf_backup/restore/restore_job.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/set/catalog_reader.h"
#include "mtf_backup/set/set_store.h"

namespace MTF_BACKUP {

/**
 * One restore: finds the set, makes the directories while several threads put the files in place, and then goes over
 * the catalog once more for hard links and what directories get last. Threads: one; the settings are borrowed.
 */
class Restore_Run {
 public:
  Restore_Run(const Restore_Settings& settings, MTF::Event_Handler_var handler, ACE_Log_Msg_Callback* log_callback);
  ~Restore_Run();

  /// As MTF_Restore::restore().
  [[nodiscard]] bool run(const std::string& name);

  MTF::Error_Code err_code() const { return err_code_; }
  const MTF::Cat_Summary& summary() const { return summary_; }
  const Restore_Tally& tally() const { return tally_; }
  bool canceled() const { return state_.canceled(); }

 private:
  MTF::Error_Code restore(const std::string& name);
  bool check() const;
  MTF::Error_Code find_set(const std::string& name);
  MTF::Error_Code move_data();
  uint64_t catalog_size() const;
  bool count_total(Restore_Job& job, Catalog_Reader& catalog);
  size_t thread_count() const;

  const Restore_Settings& settings_;
  MTF::Event_Handler_var handler_;
  ACE_Log_Msg_Callback* const log_callback_;
  Run_State state_;
  Restore_Tally tally_;
  Selection selection_;
  std::shared_ptr<Client_IO_Base> storage_;
  Set_Id id_;
  Commit_Record record_;
  MTF::Cat_Summary summary_;
  MTF::Error_Code err_code_ = MTF::E_OK;
};

}  // namespace MTF_BACKUP
