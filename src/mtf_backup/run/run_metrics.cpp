#include "mtf_backup/run/run_metrics.h"

#include "kolt/metrics.h"
#include "kolt/without_bad_alloc.h"

namespace MTF_BACKUP {

namespace {

const char* result_name(MTF::Error_Code code) {
  switch (code) {
    case MTF::E_OK:
      return "ok";
    case MTF::E_CORRUPT:
      return "corrupt";
    case MTF::E_NOT_FOUND:
      return "not_found";
    case MTF::E_MKDIR:
      return "mkdir";
    case MTF::E_GET_SOURCE_DATA:
      return "source";
    case MTF::E_WRITE_TO_STORAGE:
    case MTF::E_UPLOAD_MTF_FILE_ERROR:
      return "storage";
    case MTF::E_ADD_TO_CATALOG:
    case MTF::E_DOWNLOAD_CAT_ERROR:
      return "catalog";
    case MTF::E_OPEN_MEDIA:
      return "media";
    case MTF::E_GET_POOL_INFO:
      return "pool_info";
    case MTF::E_NO_FILES_BACKUPED:
    case MTF::E_NO_FILES_RESTORED:
      return "no_files";
    case MTF::E_END_WITH_SKIPPED_FILES:
      return "skipped_files";
    default:
      return "failed";
  }
}

kolt::Counter runs(const char* operation, MTF::Error_Code code) {
  return kolt::Counter("tessarin_runs_total", "Runs of the data mover, one per volume, by how they ended.",
                       {{"operation", operation}, {"result", result_name(code)}});
}

const kolt::Counter good_runs[] = {runs("backup", MTF::E_OK), runs("restore", MTF::E_OK)};

}  // namespace

void count_run(const char* operation, MTF::Error_Code code) {
  const auto count = [&] {
    runs(operation, code).add();
    return true;
  };
  (void)without_bad_alloc(count);  // a run that went well is not spoiled by its count
}

}  // namespace MTF_BACKUP
