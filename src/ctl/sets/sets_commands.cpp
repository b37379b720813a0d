#include "ctl/sets/sets_commands.h"

#include "ctl/print.h"
#include "ctl/sets/record_view.h"
#include "ctl/sets/set_name.h"
#include "ctl/table.h"
#include "json_spirit/assign.h"

namespace ctl {

Exit_Code sets_list(const Options& options, std::ostream& out, std::ostream& err) {
  const Pool pool = Pool::of(options);
  pool.check();
  const Pool_Sets found = pool.sets(options.host, options.resource);
  if (options.json) {
    json_spirit::Array sets;
    for (const Pool_Set& set : found.sets) sets.emplace_back(list_document(set));
    json_spirit::Object document;
    json_spirit::insert(document)("sets", std::move(sets))("unreadable", uint64_t(found.unreadable.size()));
    print_json(out, document);
  } else {
    Table table({"NAME", ">SEQ", ">INC", "TIME", ">FILES", ">SIZE", ">STORED", "COMPRESSION", "RESOURCE", "HOST"});
    for (const Pool_Set& set : found.sets) table.add(list_row(set));
    table.print(out);
  }
  for (const MTF_BACKUP::Pool_Key& key : found.unreadable) err << "Set " << set_label(key) << " cannot be read.\n";
  return found.unreadable.empty() ? exit_ok : exit_job_failed;
}

const std::map<std::string, Command>& sets_commands() {
  static const std::map<std::string, Command> commands = {{"sets list", sets_list},       {"sets show", sets_show},
                                                          {"sets find", sets_find},       {"sets verify", sets_verify},
                                                          {"sets restore", sets_restore}, {"sets export", sets_export},
                                                          {"sets remove", sets_remove},   {"sets prune", sets_prune}};
  return commands;
}

}  // namespace ctl
