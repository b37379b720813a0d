#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include "ctl/human.h"
#include "ctl/print.h"
#include "ctl/sets/pool.h"
#include "ctl/sets/retention.h"
#include "ctl/sets/run_view.h"
#include "ctl/sets/set_chains.h"
#include "ctl/sets/set_name.h"
#include "ctl/sets/sets_commands.h"
#include "ctl/table.h"
#include "json_spirit/assign.h"
#include "kolt/printable.h"
#include "mtf_backup/set/percent.h"
#include "mtf_backup/set/set_store.h"

namespace ctl {

using json_spirit::Array;
using json_spirit::Object;
using MTF_BACKUP::Pool_Key;

namespace {

bool same_place(const Pool_Key& a, const Pool_Key& b) {
  return a.host == b.host && a.resource == b.resource;
}

bool same_set(const Pool_Key& a, const Pool_Key& b) {
  return a.order() == b.order();
}

/// What a damaged record needs is not known, so that nothing beside it may go.
void refuse_beside_unreadable(const Options& options, const Pool_Sets& sets, const std::vector<Pool_Key>& removed) {
  if (options.sets.ignore_damaged) return;
  for (const Pool_Key& bad : sets.unreadable)
    for (const Pool_Key& key : removed)
      if (same_place(bad, key) && !same_set(bad, key))
        throw Failure(exit_pool, "What set " + set_label(bad) +
                                     " needs is not known, since its record cannot be read: " +
                                     "nothing is removed beside it. Remove it, or give --ignore-damaged.");
}

/// With the raw name: as the record tells it, or else from the key.
MTF_BACKUP::Set_Id id_of(const Pool_Key& key, const Pool_Sets& sets) {
  for (const Pool_Set& set : sets.sets)
    if (same_set(set.key, key)) return {set.record.name, key.set.seq, key.set.incarnation};
  MTF_BACKUP::Set_Id id{"", key.set.seq, key.set.incarnation};
  if (MTF_BACKUP::percent_decode(key.set.name, id.name) && id.dir() == key.set.dir()) return id;
  throw Failure(exit_pool, "The name of set " + set_label(key) + " is too long to be told without its record.");
}

/// What is stored of a set, as far as its record tells.
uint64_t stored_bytes(const Pool_Sets& sets, const Pool_Key& key) {
  for (const Pool_Set& set : sets.sets)
    if (same_set(set.key, key)) return set.record.summary.storage_size;
  return 0;
}

/// Of each the commit record goes first, and sets go before those that they need: who is killed here leaves no set with
/// holes.
void remove_sets(const Pool& pool, const Pool_Sets& sets, const std::vector<Pool_Key>& keys, const Options& options,
                 std::ostream& out, std::ostream& err) {
  Run_View view(out, err, options.json);
  view.begin("removing sets");
  std::map<std::pair<std::string, std::string>, std::vector<MTF_BACKUP::Set_Id>> places;
  uint64_t total = 0;
  for (const Pool_Key& key : keys) {
    places[{key.host, key.resource}].push_back(id_of(key, sets));
    total += stored_bytes(sets, key);
  }
  uint64_t done = 0;
  size_t left = keys.size();
  for (const auto& [place, ids] : places) {
    const auto on_removed = [&](const MTF_BACKUP::Set_Id& id) {
      view.line("Removed " + set_label(id.name, id.seq, id.incarnation));
      const MTF_BACKUP::Set_Key set{MTF_BACKUP::encode_name(id.name), id.seq, id.incarnation, ""};
      done += stored_bytes(sets, {place.first, place.second, set});
      if (--left > 0) view.progress(done, total);
      return !view.interrupted();
    };
    if (!MTF_BACKUP::Set_Store(pool.storage({place.first, place.second, {}})).remove(ids, on_removed) &&
        errno != ECANCELED)
      throw Failure(exit_pool, std::string("The sets cannot be removed: ") + std::strerror(errno) +
                                   ". Some may be gone; 'sets list' tells.");
    if (view.interrupted() && left > 0) throw Failure(exit_interrupted, "Interrupted. The other sets are still there.");
  }
}

Object key_document(const Pool_Key& key) {
  Object document;
  json_spirit::insert(document)("name", key.set.name)("seq", key.set.seq)("incarnation", key.set.incarnation)(
      "resource", key.resource)("host_uuid", key.host);
  return document;
}

/// Adds the sets that need those in @a keys, or refuses.
void take_dependents(const Options& options, const Pool_Sets& sets, std::vector<Pool_Key>& keys) {
  const Set_Chains chains(sets.sets);
  std::string needed;
  for (size_t i = 0; i < keys.size(); ++i)
    for (const size_t user : chains.dependents(keys[i])) {
      const Pool_Key& key = sets.sets[user].key;
      if (std::any_of(keys.begin(), keys.end(), [&](const Pool_Key& other) { return same_set(other, key); })) continue;
      if (options.sets.with_dependents)
        keys.push_back(Pool_Key(key));
      else
        needed += "\n  " + set_label(keys[i]) + " is needed by " + set_label(key);
    }
  if (!needed.empty())
    throw Failure(exit_usage, "Nothing is removed: other sets have data in these." + needed +
                                  "\nGive --with-dependents to remove those too.");
}

/// All rules, and of the sets that need it the first one.
std::string reasons_text(const Retention_Verdict& verdict) {
  std::string text;
  const size_t shown = std::min(verdict.reasons.size(), verdict.by_rules + 1);
  for (size_t i = 0; i < shown; ++i) text += (text.empty() ? "" : ", ") + verdict.reasons[i];
  const size_t more = verdict.reasons.size() - shown;
  return more == 0 ? text : text + " and " + std::to_string(more) + " more";
}

void print_verdicts(std::ostream& out, const std::vector<Pool_Set>& sets,
                    const std::vector<Retention_Verdict>& verdicts) {
  Table table({"SET", "TIME", ">STORED", "RESULT", "REASON", "RESOURCE", "HOST"});
  for (size_t i = 0; i < sets.size(); ++i) {
    const MTF_BACKUP::Commit_Record& record = sets[i].record;
    table.add({set_label(sets[i].key), human_time(record.begin_time), human_size(record.summary.storage_size),
               verdicts[i].keep ? "keep" : "remove", reasons_text(verdicts[i]), printable(sets[i].key.resource),
               printable(sets[i].key.host)});
  }
  table.print(out);
}

void print_verdicts_document(std::ostream& out, const Pool_Sets& sets, const std::vector<Retention_Verdict>& verdicts,
                             bool removed) {
  Array documents;
  for (size_t i = 0; i < sets.sets.size(); ++i) {
    Array reasons;
    for (const std::string& reason : verdicts[i].reasons) reasons.emplace_back(reason);
    const MTF_BACKUP::Commit_Record& record = sets.sets[i].record;
    Object document = key_document(sets.sets[i].key);
    json_spirit::insert(document)("time", record.begin_time)("stored_size", record.summary.storage_size)(
        "keep", verdicts[i].keep)("reasons", std::move(reasons));
    documents.emplace_back(std::move(document));
  }
  Object document;
  json_spirit::insert(document)("sets", std::move(documents))("removed", removed)("unreadable",
                                                                                  uint64_t(sets.unreadable.size()));
  print_json(out, document);
}

/// Rules that met no set they could judge have done nothing, whatever was to be ignored.
Exit_Code prune_code(const Options& options, const Pool_Sets& sets) {
  const bool ignored = options.sets.ignore_damaged && !sets.sets.empty();
  return sets.unreadable.empty() || ignored ? exit_ok : exit_job_failed;
}

}  // namespace

Exit_Code sets_remove(const Options& options, std::ostream& out, std::ostream& err) {
  const Pool pool = Pool::of(options);
  pool.check();
  const std::vector<Pool_Key> all = pool.keys(options.host, options.resource);
  std::vector<Pool_Key> keys = find_sets(all, options.sets.sets);
  const Pool_Sets sets = pool.read(all);
  take_dependents(options, sets, keys);
  refuse_beside_unreadable(options, sets, keys);
  if (!options.sets.dry_run)
    remove_sets(pool, sets, keys, options, out, err);
  else if (!options.json)
    for (const Pool_Key& key : keys) out << "Would remove " << set_label(key) << '\n';
  if (options.json) {
    Array documents;
    for (const Pool_Key& key : keys) documents.emplace_back(key_document(key));
    Object document;
    json_spirit::insert(document)("sets", std::move(documents))("removed", !options.sets.dry_run);
    print_json(out, document);
  }
  return exit_ok;
}

Exit_Code sets_prune(const Options& options, std::ostream& out, std::ostream& err) {
  const Sets_Options& given = options.sets;
  if (given.keep.last == 0 && given.keep.daily == 0 && given.keep.weekly == 0)
    throw Failure(exit_usage, "Give --keep-last, --keep-daily or --keep-weekly: at least one set has to be kept.");
  const Pool pool = Pool::of(options);
  pool.check();
  const Pool_Sets sets = pool.sets(options.host, options.resource);
  const std::vector<Retention_Verdict> verdicts = judge(sets.sets, given.keep, given.name);
  std::vector<Pool_Key> keys;
  for (size_t i = 0; i < sets.sets.size(); ++i)
    if (!verdicts[i].keep) keys.push_back(sets.sets[i].key);
  refuse_beside_unreadable(options, sets, keys);
  if (!options.json) print_verdicts(out, sets.sets, verdicts);
  if (given.yes)
    remove_sets(pool, sets, keys, options, out, err);
  else if (!options.json && !keys.empty())
    out << keys.size() << (keys.size() == 1 ? " set" : " sets") << " would be removed; --yes does it.\n";
  if (options.json) print_verdicts_document(out, sets, verdicts, given.yes);
  for (const Pool_Key& key : sets.unreadable) err << "Set " << set_label(key) << " cannot be read.\n";
  return prune_code(options, sets);
}

}  // namespace ctl
