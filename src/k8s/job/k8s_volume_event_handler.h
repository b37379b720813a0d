#pragma once

#include "job/job_activity.h"
#include "k8s/job/k8s_reporter.h"
#include "mtf/core/event_handler.h"

/// Reports into objects of its maker, which hold for as long as the handler lives. Takes no lock.
class K8S_Volume_Event_Handler : public MTF::Event_Handler {
 public:
  K8S_Volume_Event_Handler(K8S_Progress& progress, Job_Activity& act);

  /// Stores all but the percentage. Always 0.
  int handle_progress(int progress, ACE_UINT64 total, ACE_UINT64 processed, ACE_UINT64 speed) override;
  /// Whether the activity is being canceled.
  bool canceling() override;

 private:
  K8S_Progress& progress_;
  Job_Activity& act_;
};
