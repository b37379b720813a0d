#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_volume_event_handler.h"

#include <utility>

#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_toolkit.h"

std::atomic<ACE_UINT64> K8S_SClient_Volume_Event_Handler::total_size{0};
std::atomic<ACE_UINT64> K8S_SClient_Volume_Event_Handler::processed_size{0};
std::atomic<ACE_UINT64> K8S_SClient_Volume_Event_Handler::set_size{0};
std::atomic<ACE_UINT64> K8S_SClient_Volume_Event_Handler::storage_size{0};

K8S_SClient_Volume_Event_Handler::K8S_SClient_Volume_Event_Handler(std::string job_id)
    : MTF::Event_Handler(MTF::PRM_FILE_SIZE), job_id_(std::move(job_id)) {}

int K8S_SClient_Volume_Event_Handler::handle_progress(int, ACE_UINT64 total, ACE_UINT64 processed, ACE_UINT64 speed) {
  const bool v1_backup_set = total_size == 0;  // such a set doesn't tell the size of the whole job
  if (v1_backup_set)
    K8S_SClient_Toolkit::instance()->set_job_progress(job_id_, speed, total, processed);
  else
    K8S_SClient_Toolkit::instance()->set_job_progress(job_id_, speed, total_size, processed_size + processed);
  return 0;
}

bool K8S_SClient_Volume_Event_Handler::canceling() {
  return K8S_SClient_Task_Handler::instance()->get_act_state() == JOB_STATE_CANCELING;
}
