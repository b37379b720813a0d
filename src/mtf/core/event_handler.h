#pragma once

#include "ace/Basic_Types.h"
#include "ace/Recursive_Thread_Mutex.h"
#include "ace/Refcounted_Auto_Ptr.h"
#include "kolt/export.h"

namespace MTF {

/// What `total` and `processed` of a progress report count.
enum Progress_Report_Mode {
  PRM_FILE_SIZE = 0,  ///< bytes
  PRM_FILE_COUNT = 1  ///< files
};

/**
 * Hears how far a run of the data mover has got and tells it whether to stop.
 *
 * Threads: the data mover calls from threads of its own while the run's caller waits, never two calls at once of
 * handle_progress, but canceling and pausing may be called by several threads at the same time.
 */
class TESSARIN_API Event_Handler {
 public:
  explicit Event_Handler(Progress_Report_Mode mode) : mode_(mode) {}
  virtual ~Event_Handler();
  Event_Handler(const Event_Handler&) = delete;
  Event_Handler& operator=(const Event_Handler&) = delete;

  /// Something worth a note to a person has happened. The base ignores it and returns 0.
  virtual int notify_event(int event, const char* text);
  /**
   * A report, about once a second and once at the end of a run.
   *
   * @param progress percent, 0 to 100
   * @param total, processed bytes or files, as progress_report_mode() says; 0 as total: not known
   * @param speed bytes per second
   * @return 0. The base does nothing.
   */
  virtual int handle_progress(int progress, ACE_UINT64 total, ACE_UINT64 processed, ACE_UINT64 speed);
  /// Whether the run is to end as soon as it can, as a failure. Asked often: must be quick. The base says false.
  virtual bool canceling();
  /// Whether the run is to wait. Asked like canceling(). The base says false.
  virtual bool pausing();

  Progress_Report_Mode progress_report_mode() const { return mode_; }

 private:
  const Progress_Report_Mode mode_;
};

typedef ACE_Refcounted_Auto_Ptr<Event_Handler, ACE_Recursive_Thread_Mutex> Event_Handler_var;

}  // namespace MTF
