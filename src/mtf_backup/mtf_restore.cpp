#include "mtf_backup/mtf_restore.h"

#include "kolt/check_macros.h"
#include "kolt/without_bad_alloc.h"
#include "mtf_backup/restore/restore_run.h"
#include "mtf_backup/run/run_metrics.h"
#include "mtf_backup/run/run_threads.h"
#include "task/task_context.h"

MTF_Restore::MTF_Restore(MTF::Event_Handler_var event_handler, ACE_Log_Msg_Callback_var log_callback)
    : event_handler_(event_handler), log_callback_(log_callback), err_code_(MTF::E_OK) {}

MTF_Restore::~MTF_Restore() = default;

void MTF_Restore::path_converter(MTF::IPath_Converter_var val) {
  settings_.path_converter_missing = val.null() && settings_.path_converter.null();
  KOLT_RETURN_IF_NULL(val, );
  settings_.path_converter = val;
}

bool MTF_Restore::restore(const std::string& name) {
  MTF_BACKUP::Log_Scope log(log_callback_.get());
  err_code_ = MTF::E_FAILED;
  restore_.reset();
  bool ok = false;
  const auto restore = [&] {
    restore_ = std::make_unique<MTF_BACKUP::Restore_Run>(settings_, event_handler_, log_callback_.get());
    ok = restore_->run(name);
    return true;
  };
  if (!without_bad_alloc(restore)) restore_.reset();
  if (restore_ && restore_->canceled() && Task_Context::current()) Task_Context::current()->set_canceled();
  MTF_BACKUP::count_run("restore", err_code());
  return ok;
}

MTF::Error_Code MTF_Restore::err_code() const {
  return restore_ ? restore_->err_code() : err_code_;
}

ACE_UINT64 MTF_Restore::size() const {
  KOLT_RETURN_IF_NULL(restore_, static_cast<ACE_UINT64>(-1));
  return restore_->summary().total_size;
}

ACE_UINT64 MTF_Restore::restored_size() const {
  return restore_ ? restore_->tally().restored_size() : 0;
}

ACE_UINT64 MTF_Restore::missing_count() const {
  return restore_ ? restore_->tally().missing_count() : 0;
}

ACE_UINT64 MTF_Restore::set_size() const {
  KOLT_RETURN_IF_NULL(restore_, static_cast<ACE_UINT64>(-1));
  return restore_->summary().inc_size;
}
