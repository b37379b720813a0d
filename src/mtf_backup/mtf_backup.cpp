#include "mtf_backup/mtf_backup.h"

#include "kolt/without_bad_alloc.h"
#include "mtf_backup/backup/backup_run.h"
#include "mtf_backup/run/run_metrics.h"
#include "mtf_backup/run/run_threads.h"
#include "task/task_context.h"

MTF_Backup::MTF_Backup(MTF::Event_Handler_var event_handler, MTF::Metadata& metadata,
                       ACE_Log_Msg_Callback_var log_callback)
    : event_handler_(event_handler), log_callback_(log_callback), err_code_(MTF::E_OK) {
  // What it lacks is left to the setters.
  (void)metadata.get_pool_uuid(settings_.pool_uuid);
  (void)metadata.get_host_uuid(settings_.host_uuid);
  (void)metadata.get_uuid(settings_.uuid);
}

MTF_Backup::~MTF_Backup() = default;

bool MTF_Backup::backup(const std::string& name) {
  MTF_BACKUP::Log_Scope log(log_callback_.get());
  summary_ = MTF::Cat_Summary();
  const auto back_up = [&] {
    MTF_BACKUP::Backup_Run run(settings_, event_handler_, log_callback_.get());
    err_code_ = run.run(name);
    summary_ = run.summary();
    if (run.canceled() && Task_Context::current()) Task_Context::current()->set_canceled();
    return true;
  };
  if (!without_bad_alloc(back_up)) err_code_ = MTF::E_FAILED;
  MTF_BACKUP::count_run("backup", err_code_);
  return err_code_ == MTF::E_OK;
}
