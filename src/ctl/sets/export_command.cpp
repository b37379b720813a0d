#include <unistd.h>

#include "ctl/human.h"
#include "ctl/print.h"
#include "ctl/sets/export_file.h"
#include "ctl/sets/pool.h"
#include "ctl/sets/run_view.h"
#include "ctl/sets/set_name.h"
#include "ctl/sets/sets_commands.h"
#include "json_spirit/assign.h"
#include "mtf_backup/mtf_export.h"

namespace ctl {

namespace {

const char* why_not(MTF::Error_Code code) {
  switch (code) {
    case MTF::E_WRITE_TO_STORAGE:
      return "The output cannot be written.";
    case MTF::E_CORRUPT:
      return "The set is damaged: the export has ended early. 'sets verify --data' tells what is hit.";
    case MTF::E_OPEN_MEDIA:
      return "The pool cannot be read.";
    default:
      return "The export failed.";
  }
}

}  // namespace

Exit_Code sets_export(const Options& options, std::ostream& out, std::ostream& err) {
  const Sets_Options& given = options.sets;
  if (given.file == "-" && options.json) throw Failure(exit_usage, "--json goes with a file only.");
  if (given.file == "-" && isatty(STDOUT_FILENO)) throw Failure(exit_usage, "The standard output is a terminal.");
  const Pool pool = Pool::of(options);
  pool.check();
  const MTF_BACKUP::Pool_Key key = find_set(pool.keys(options.host, options.resource), given.sets.front());
  // Nothing but the stream goes to the standard output.
  Run_View view(out, err, options.json);
  Export_File file(given.file);
  view.begin("exporting " + set_label(key));
  MTF_Export run(view.handler());
  run.channel_factory(pool.channels(key));
  run.form(given.format == "mtf" ? MTF_BACKUP::EXPORT_MTF : MTF_BACKUP::EXPORT_TAR);
  run.output(file.fd());
  const MTF::Error_Code code = run.run(key.set.dir());
  if (view.interrupted()) throw Failure(exit_interrupted, "Interrupted.");
  if (!run.complete()) throw Failure(code == MTF::E_OPEN_MEDIA ? exit_pool : exit_job_failed, why_not(code));
  file.finish();
  if (options.json) {
    json_spirit::Object document;
    json_spirit::insert(document)("file", given.file)("format", given.format)("entries", run.entries())(
        "left_out", run.left_out())("size", run.size());
    print_json(out, document);
  } else if (given.file != "-") {
    view.line("Exported " + std::to_string(run.entries()) + " entries, " + human_size(run.size()));
  }
  if (run.left_out() > 0) err << run.left_out() << " entries are left out.\n";
  return code == MTF::E_OK ? exit_ok : exit_job_failed;
}

}  // namespace ctl
