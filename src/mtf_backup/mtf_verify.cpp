#include "mtf_backup/mtf_verify.h"

#include "mtf_backup/verify/verify_run.h"

MTF::Error_Code MTF_Verify::verify(const std::string& dir) {
  return MTF_BACKUP::Verify_Run(settings_, event_handler_).run(dir);
}
