#include <map>
#include <set>

#include "ctl/print.h"
#include "ctl/sets/bytes.h"
#include "ctl/sets/pool.h"
#include "ctl/sets/run_view.h"
#include "ctl/sets/set_name.h"
#include "ctl/sets/sets_commands.h"
#include "json_spirit/assign.h"
#include "kolt/printable.h"
#include "mtf_backup/mtf_verify.h"

namespace ctl {

using json_spirit::Array;
using json_spirit::Object;
using MTF_BACKUP::Finding;
using MTF_BACKUP::Pool_Key;
using MTF_BACKUP::Verify_Note;

namespace {

/// What came out for one set.
struct Verdict {
  bool whole = false;
  const char* state = "";
  uint64_t object_count = 0;
  uint64_t file_count = 0;
  Array objects;  ///< with --json
  Array files;
  Array notes;
};

std::string finding_line(const std::string& label, const Finding& finding) {
  if (!finding.path.empty()) return label + "  file " + printable(finding.path);
  return label + "  object " + printable(finding.object) + " at offset " + std::to_string(finding.offset) + ": " +
         printable(finding.reason);
}

void note(const Finding& finding, bool json, Verdict& verdict) {
  const bool file = !finding.path.empty();
  ++(file ? verdict.file_count : verdict.object_count);
  if (!json) return;
  Object document;
  if (file) insert_bytes(document, "path", finding.path);
  json_spirit::insert(document)("object", finding.object)("offset", finding.offset)("reason", finding.reason,
                                                                                    json_spirit::skip_empty);
  (file ? verdict.files : verdict.objects).emplace_back(std::move(document));
}

json_spirit::Object note_document(const Verify_Note& note) {
  Object document;
  insert_bytes(document, "path", note.path);
  document["reason"] = note.what;
  return document;
}

const char* state_of(MTF::Error_Code code) {
  switch (code) {
    case MTF::E_OK:
      return "whole";
    case MTF::E_CORRUPT:
      return "damaged";
    default:
      return "not verified";
  }
}

Verdict verify(const Options& options, const Pool& pool, const Pool_Key& key, const std::set<std::string>& verified,
               Run_View& view) {
  Verdict verdict;
  const std::string label = set_label(key);
  view.begin("verifying " + label);
  MTF_Verify verify(view.handler());
  verify.channel_factory(pool.channels(key));
  verify.with_data(options.sets.data);
  verify.verified(verified);
  verify.on_finding([&](const Finding& finding) {
    note(finding, options.json, verdict);
    view.line(finding_line(label, finding));
  });
  verify.on_note([&](const Verify_Note& note) {
    if (options.json) verdict.notes.emplace_back(note_document(note));
    view.line(label + "  note " + printable(note.path) + ": " + note.what);
  });
  const MTF::Error_Code code = verify.verify(key.set.dir());
  verdict.whole = code == MTF::E_OK;
  verdict.state = state_of(code);
  std::string line = label + "  " + verdict.state;
  if (verdict.object_count + verdict.file_count > 0)
    line += ": " + std::to_string(verdict.object_count) + " places in objects, " + std::to_string(verdict.file_count) +
            " files hit";
  view.line(line);
  return verdict;
}

Object verdict_document(const Pool_Key& key, Verdict& verdict) {
  Object document;
  json_spirit::insert(document)("name", key.set.name)("seq", key.set.seq)("incarnation", key.set.incarnation)(
      "resource", key.resource)("host_uuid", key.host)("state", verdict.state)("objects", std::move(verdict.objects))(
      "files", std::move(verdict.files))("notes", std::move(verdict.notes));
  return document;
}

}  // namespace

Exit_Code sets_verify(const Options& options, std::ostream& out, std::ostream& err) {
  const Pool pool = Pool::of(options);
  pool.check();
  const std::vector<Pool_Key> keys = find_sets(pool.keys(options.host, options.resource), options.sets.sets);
  std::map<std::string, std::set<std::string>> verified;  // by host and resource: those that came out whole
  bool all_whole = true;
  Array documents;
  {
    Run_View view(out, err, options.json);
    for (const Pool_Key& key : keys) {
      if (view.interrupted()) throw Failure(exit_interrupted, "Interrupted.");
      std::set<std::string>& verified_here = verified[key.host + '/' + key.resource];
      Verdict verdict = verify(options, pool, key, verified_here, view);
      if (verdict.whole)
        verified_here.insert(key.set.dir());
      else
        all_whole = false;
      if (options.json) documents.emplace_back(verdict_document(key, verdict));
    }
    if (view.interrupted()) throw Failure(exit_interrupted, "Interrupted.");
  }
  if (options.json) {
    Object document;
    document["sets"] = std::move(documents);
    print_json(out, document);
  }
  return all_whole ? exit_ok : exit_job_failed;
}

}  // namespace ctl
