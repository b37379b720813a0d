#include <filesystem>
#include <map>
#include <new>

#include "ctl/human.h"
#include "ctl/print.h"
#include "ctl/sets/run_view.h"
#include "ctl/sets/set_catalog.h"
#include "ctl/sets/set_name.h"
#include "ctl/sets/sets_commands.h"
#include "json_spirit/assign.h"
#include "k8s/job/k8s_restore_callback.h"
#include "kolt/printable.h"
#include "mtf/fs/path_converter.h"
#include "mtf_backup/mtf_restore.h"
#include "mtf_backup/restore/selection.h"
#include "mtf_backup/set/set_path.h"

namespace ctl {

namespace fs = std::filesystem;

namespace {

constexpr size_t concurrent_files = 4;

/// The paths in the set that are asked for. @throws Failure (exit_usage): there is no such path.
std::vector<std::string> wanted_paths(const Pool& pool, const Pool_Set& set, const std::vector<std::string>& texts) {
  if (texts.empty()) return set.record.sources;
  Set_Catalog catalog(pool, set);
  std::vector<std::string> paths;
  for (const std::string& text : texts) {
    const size_t before = paths.size();
    for (const Set_Path& place : places_of_path(set.record, text)) {
      MTF_BACKUP::Catalog_Entry entry;
      const int got = catalog.reader().find(place.source, place.below, entry);
      if (got < 0) catalog.fail();
      if (got > 0) paths.push_back(catalog.path(entry));
    }
    if (paths.size() == before)
      throw Failure(exit_usage, "There is no '" + printable(text) + "' in set " + set_label(set.key) + ".");
  }
  return paths;
}

/// Puts each path under a name of its own in the target. The target alone may be reached through links: who can write
/// to it must not choose where the rest goes.
class Into_Target : public MTF::IPath_Converter {
 public:
  /// @param names  of the paths in the target.
  Into_Target(const std::string& target, const MTF_FS::path_transform_rules& names)
      : target_(target),
        names_(MTF_FS::create_transform_path_converter("/", names, false, MTF::IPath_Converter_var())) {
    if (!names_) throw std::bad_alloc();
  }

  bool convert(const std::string& path, std::string& target) const override {
    std::string base;
    std::string below;
    if (!convert_below(path, base, below)) return false;
    target = MTF_BACKUP::path_in_set(base, below);
    return true;
  }

  bool convert_below(const std::string& path, std::string& base, std::string& below) const override {
    std::string placed;
    if (!names_->convert(path, placed)) return false;
    base = target_;
    below = placed.substr(1);
    return true;
  }

 private:
  const std::string target_;
  mutable MTF::IPath_Converter_var names_;  // its operator-> is not const
};

/// Each path goes below the target under its own last name. @throws Failure (exit_usage): two would meet.
MTF_FS::path_transform_rules make_names(const std::vector<std::string>& paths) {
  MTF_FS::path_transform_rules names;
  std::map<std::string, std::string> taken;
  for (const std::string& path : paths) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const auto [other, is_new] = taken.emplace(name, path);
    if (!is_new && other->second != path)
      throw Failure(exit_usage, "Both '" + printable(other->second) + "' and '" + printable(path) + "' would become '" +
                                    printable(name) + "': restore them one by one.");
    names[path] = name;
  }
  return names;
}

/// @throws Failure (exit_usage): one lies in another, which would then lack it.
void refuse_nested(const std::vector<std::string>& paths) {
  for (const std::string& outer : paths)
    for (const std::string& inner : paths)
      if (inner != outer && MTF_BACKUP::lies_below(inner, outer))
        throw Failure(exit_usage,
                      "'" + printable(inner) + "' lies in '" + printable(outer) + "': restore the one or the other.");
}

const char* why_not(MTF::Error_Code code) {
  switch (code) {
    case MTF::E_CORRUPT:
      return "Some of the data in the set is damaged; what it hits is left out.";
    case MTF::E_END_WITH_SKIPPED_FILES:
      return "Some files could not be put in place, or not as they were.";
    case MTF::E_NO_FILES_RESTORED:
      return "There was nothing to restore.";
    default:
      return "The restore failed.";
  }
}

}  // namespace

Exit_Code sets_restore(const Options& options, std::ostream& out, std::ostream& err) {
  const Pool pool = Pool::of(options);
  pool.check();
  std::error_code error;
  const fs::path target = fs::canonical(options.sets.target, error);
  if (error || !fs::is_directory(target, error))
    throw Failure(exit_usage, "The target '" + options.sets.target + "' is no directory.");
  const MTF_BACKUP::Pool_Key key = find_set(pool.keys(options.host, options.resource), options.sets.sets.front());
  const Pool_Set set{key, pool.record(key)};
  const std::vector<std::string> paths = wanted_paths(pool, set, options.sets.paths);
  if (!options.sets.paths.empty()) refuse_nested(paths);
  const MTF::IPath_Converter_var converter(new Into_Target(target, make_names(paths)));
  json_spirit::Array select;
  for (const std::string& path : paths) json_spirit::insert(json_spirit::append_new_object(select))("dir", path);

  Run_View view(out, err, options.json);
  view.begin("restoring");
  MTF_Restore restore(view.handler(), ACE_Log_Msg_Callback_var());
  restore.target_location("/");
  restore.backup_host_uuid(key.host);
  restore.backup_minor_resource_id(key.resource);
  restore.restore_select(&select);
  restore.seq(set.record.seq);
  restore.incarnation(set.record.incarnation);
  restore.channel_num(set.record.channels);
  restore.concurrent(concurrent_files);
  restore.path_converter(converter);
  restore.callback_factory(MTF::IRestore_Callback_Factory_var(new K8S_Restore_Callback_Factory));
  restore.channel_factory(pool.channels(key));
  const bool restored = restore.restore(set.record.name);
  if (view.interrupted()) throw Failure(exit_interrupted, "Interrupted: what was restored stays.");
  const uint64_t missing = restore.missing_count();
  const bool complete = restored && missing == 0;
  if (options.json) {
    json_spirit::Object document;
    json_spirit::insert(document)("size", restore.restored_size())("missing", missing)("complete", complete);
    print_json(out, document);
  } else {
    view.line("Restored " + human_size(restore.restored_size()));
  }
  if (!restored) err << why_not(restore.err_code()) << '\n';
  if (missing > 0) err << missing << " entries are not in the set, or not in all: the backup could not read them.\n";
  return complete ? exit_ok : exit_job_failed;
}

}  // namespace ctl
