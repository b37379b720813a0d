#include <fnmatch.h>

#include <functional>

#include "ctl/human.h"
#include "ctl/print.h"
#include "ctl/progress_view.h"
#include "ctl/sets/bytes.h"
#include "ctl/sets/entry_view.h"
#include "ctl/sets/set_catalog.h"
#include "ctl/sets/set_name.h"
#include "ctl/sets/sets_commands.h"
#include "json_spirit/assign.h"
#include "kolt/printable.h"

namespace ctl {

using MTF_BACKUP::Catalog_Entry;

namespace {

/// Compares a pattern with names, or with whole paths if it has a '/'; a '*' matches a '/' as well.
class Path_Pattern {
 public:
  explicit Path_Pattern(const std::string& pattern)
      : pattern_(pattern), whole_(pattern.find('/') != std::string::npos) {}
  bool matches(const std::string& path) const {
    return fnmatch(pattern_.c_str(), path.c_str() + (whole_ ? 0 : path.rfind('/') + 1), 0) == 0;
  }

 private:
  const std::string pattern_;
  const bool whole_;
};

json_spirit::Object match_document(const Pool_Set& set, const Catalog_Entry& entry, const std::string& path) {
  json_spirit::Object document = entry_document(entry, path);
  insert_bytes(document, "name", set.record.name);
  json_spirit::insert(document)("seq", set.record.seq)("incarnation", set.record.incarnation)(
      "time", set.record.begin_time)("resource", set.key.resource)("host_uuid", set.key.host);
  return document;
}

std::string match_line(const Pool_Set& set, const Catalog_Entry& entry, const std::string& path) {
  const MTF_BACKUP::Commit_Record& record = set.record;
  return set_label(record.name, record.seq, record.incarnation) + "  " + human_time(record.begin_time) + "  " +
         human_size(entry.stat.size) + "  " + printable(path);
}

/// Calls @a each for what matches in a set. False where the set cannot be read, which is told.
bool search(const std::string& pattern, const Pool& pool, const Pool_Set& set, std::ostream& err,
            const std::function<void(const Catalog_Entry&, const std::string& path)>& each) {
  try {
    const Path_Pattern matching(pattern);
    Set_Catalog catalog(pool, set);
    Catalog_Entry entry;
    while (catalog.next(entry)) {
      const std::string path = catalog.path(entry);
      if (matching.matches(path)) each(entry, path);
    }
    return true;
  } catch (const Failure& failure) {
    err << failure.what() << '\n';
    return false;
  }
}

}  // namespace

Exit_Code sets_find(const Options& options, std::ostream& out, std::ostream& err) {
  const Pool pool = Pool::of(options);
  pool.check();
  const Pool_Sets sets = pool.read(find_sets(pool.keys(options.host, options.resource), options.sets.sets));
  const std::string count = std::to_string(sets.sets.size());
  bool complete = sets.unreadable.empty();
  bool any = false;
  Array_Printer matches(out, "matches");
  for (size_t i = 0; i < sets.sets.size(); ++i) {
    const Pool_Set& set = sets.sets[i];
    const bool shown = !options.json && Progress_View::mode_for_stderr() == Progress_View::bar;
    Progress_View view(err, shown ? Progress_View::bar : Progress_View::silent);
    view.show({"searching set " + std::to_string(i + 1) + " of " + count, 0, 0, 0});
    const auto tell = [&](const Catalog_Entry& entry, const std::string& path) {
      any = true;
      view.clear();
      if (options.json)
        matches.add(match_document(set, entry, path));
      else
        out << match_line(set, entry, path) << '\n';
    };
    complete = search(options.sets.pattern, pool, set, err, tell) && complete;
  }
  if (options.json) matches.end();
  return complete && any ? exit_ok : exit_job_failed;
}

}  // namespace ctl
