#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mtf/core/error_code.h"
#include "mtf/core/event_handler.h"
#include "mtf_backup/mtf_verify.h"
#include "mtf_backup/run/progress_reporter.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/set/commit_record.h"
#include "mtf_backup/verify/entry_check.h"
#include "mtf_backup/verify/finding_log.h"
#include "mtf_backup/verify/hashing_client_io.h"
#include "mtf_backup/verify/set_check.h"

namespace MTF_BACKUP {

/// One verification. Threads: one; the settings are borrowed.
class Verify_Run {
 public:
  Verify_Run(const Verify_Settings& settings, MTF::Event_Handler_var handler)
      : settings_(settings), handler_(handler), findings_(settings.on_finding, settings.on_note) {}

  /// As MTF_Verify::verify().
  [[nodiscard]] MTF::Error_Code run(const std::string& dir);

 private:
  typedef std::vector<std::unique_ptr<Bounded_Queue_T<Entry_Batch>>> Queues;

  bool make_clients();
  MTF::Error_Code read_record(const std::string& dir);
  void expect_objects(const std::string& dir);
  void check(const std::string& dir);
  bool run_threads(const std::vector<std::function<void()>>& bodies, Progress_Reporter& progress,
                   const std::function<void()>& stop);
  bool check_structure(Set_Check& set, Queues& queues);
  bool check_links(const std::string& dir, Medium_Set& media);
  void check_hashes(const std::string& dir, Set_Check& set);
  bool is_read(const Catalog_Entry& entry) const;

  const Verify_Settings& settings_;
  MTF::Event_Handler_var handler_;
  Run_State state_;
  Finding_Log findings_;
  Hashed_Objects objects_{{}, state_.processed};
  std::unique_ptr<Hashing_Channel_Factory> factory_;
  std::shared_ptr<Client_IO_Base> storage_;        // hashes what it reads
  std::shared_ptr<Client_IO_Base> plain_storage_;  // does not
  Commit_Record record_;
};

}  // namespace MTF_BACKUP
