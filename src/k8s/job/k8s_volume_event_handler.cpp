#include "k8s/job/k8s_volume_event_handler.h"

K8S_Volume_Event_Handler::K8S_Volume_Event_Handler(K8S_Progress& progress, Job_Activity& act)
    : Event_Handler(MTF::PRM_FILE_SIZE), progress_(progress), act_(act) {}

int K8S_Volume_Event_Handler::handle_progress(int, ACE_UINT64 total, ACE_UINT64 processed, ACE_UINT64 speed) {
  progress_.total = total;
  progress_.processed = processed;
  progress_.speed = speed;
  return 0;
}

bool K8S_Volume_Event_Handler::canceling() {
  return act_.state == JOB_STATE_CANCELING;
}
