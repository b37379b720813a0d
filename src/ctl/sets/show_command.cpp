#include <functional>

#include "ctl/print.h"
#include "ctl/sets/entry_view.h"
#include "ctl/sets/record_view.h"
#include "ctl/sets/set_catalog.h"
#include "ctl/sets/set_name.h"
#include "ctl/sets/sets_commands.h"
#include "kolt/printable.h"
#include "mtf_backup/set/directory_list.h"

namespace ctl {

using MTF_BACKUP::Catalog_Entry;

namespace {

/// What lies at the path. @throws Failure (exit_usage): nothing does.
void list_path(const Pool& pool, const Pool_Set& set, const std::string& path,
               const std::function<void(const Catalog_Entry&, const std::string& path)>& each) {
  Set_Catalog catalog(pool, set);
  bool found = false;
  for (const Set_Path& place : places_of_path(set.record, path)) {
    const int got = list_directory(catalog.reader(), place.source, place.below,
                                   [&](const Catalog_Entry& entry) { each(entry, catalog.path(entry)); });
    if (got < 0) catalog.fail();
    found = found || got > 0;
  }
  if (found) return;
  std::string sources;
  for (const std::string& source : set.record.sources) sources += ' ' + printable(source);
  throw Failure(exit_usage, "There is no '" + printable(path) + "' in set " + set_label(set.key) +
                                ", which was made from" + sources + ".");
}

Exit_Code show_path(const Options& options, const Pool& pool, const Pool_Set& set, std::ostream& out) {
  if (!options.json) {
    list_path(pool, set, options.sets.path, [&](const Catalog_Entry& entry, const std::string& path) {
      out << entry_line(entry, path.substr(path.rfind('/') + 1)) << '\n';
    });
    return exit_ok;
  }
  Array_Printer entries(out, "entries");
  list_path(pool, set, options.sets.path,
            [&](const Catalog_Entry& entry, const std::string& path) { entries.add(entry_document(entry, path)); });
  entries.end();
  return exit_ok;
}

}  // namespace

Exit_Code sets_show(const Options& options, std::ostream& out, std::ostream&) {
  const Pool pool = Pool::of(options);
  pool.check();
  const MTF_BACKUP::Pool_Key key = find_set(pool.keys(options.host, options.resource), options.sets.sets.front());
  const Pool_Set set{key, pool.record(key)};
  if (!options.sets.path.empty()) return show_path(options, pool, set, out);
  if (options.json)
    print_json(out, record_document(set));
  else
    print_record(out, set);
  return exit_ok;
}

}  // namespace ctl
