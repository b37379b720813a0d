#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_toolkit.h"

#include "ace/Guard_T.h"
#include "ace/Null_Mutex.h"
#include "ace/Singleton.h"

typedef ACE_Unmanaged_Singleton<K8S_SClient_Toolkit, ACE_Null_Mutex> K8S_SClient_Toolkit_Singleton;

// Runs when the plug-in is unloaded.
__attribute__((destructor)) static void K8S_SClient_Toolkit_fini() {
  K8S_SClient_Toolkit::close_instance();
}

// The lock of the singleton is a null mutex: the instance is made while the plug-in is loaded, ahead of all job
// threads.
__attribute__((constructor)) static void K8S_SClient_Toolkit_init() {
  K8S_SClient_Toolkit::instance();
}

K8S_SClient_Toolkit* K8S_SClient_Toolkit::instance() {
  return K8S_SClient_Toolkit_Singleton::instance();
}

void K8S_SClient_Toolkit::close_instance() {
  K8S_SClient_Toolkit_Singleton::close();
}

bool K8S_SClient_Toolkit::set_job_progress(const std::string& job_id, ACE_UINT64 speed, ACE_UINT64 total,
                                           ACE_UINT64 processed) {
  ACE_Write_Guard<Progress_Lock_Type> guard(progress_lock_);
  if (!guard.locked()) return false;
  if (job_id.empty()) return false;
  jobs_progress_[job_id] = {speed, total, processed};
  return true;
}

K8S_SClient_Toolkit::Progress K8S_SClient_Toolkit::get_job_progress(const std::string& job_id) {
  Progress progress = {0, 0, 0};
  ACE_Read_Guard<Progress_Lock_Type> guard(progress_lock_);
  if (!guard.locked()) return progress;
  const auto found = jobs_progress_.find(job_id);  // an empty id is never stored
  if (found != jobs_progress_.end()) progress = found->second;
  return progress;
}

void K8S_SClient_Toolkit::remove_job_progress(const std::string& job_id) {
  ACE_Write_Guard<Progress_Lock_Type> guard(progress_lock_);
  if (guard.locked()) jobs_progress_.erase(job_id);
}
