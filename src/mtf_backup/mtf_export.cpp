#include "mtf_backup/mtf_export.h"

#include "mtf_backup/export/export_run.h"

MTF::Error_Code MTF_Export::run(const std::string& dir) {
  MTF_BACKUP::Export_Run run(settings_, event_handler_);
  const MTF::Error_Code code = run.run(dir);
  complete_ = run.complete();
  entries_ = run.entries();
  left_out_ = run.left_out();
  size_ = run.size();
  return code;
}
