#include "ctl/sets/record_view.h"

#include <algorithm>
#include <set>
#include <utility>

#include "ctl/human.h"
#include "ctl/sets/bytes.h"
#include "ctl/sets/set_name.h"
#include "ctl/table.h"
#include "json_spirit/assign.h"
#include "kolt/printable.h"

namespace ctl {

using json_spirit::Array;
using json_spirit::Object;
using MTF_BACKUP::Commit_Record;

namespace {

const char* compression_name(const Commit_Record& record) {
  constexpr const char* names[] = {"none", "auto", "lzop", "zstd"};
  return names[record.compression];
}

/// Sequence numbers and incarnations of the sets of its chain, in ascending order.
std::set<std::pair<uint32_t, uint32_t>> needed_sets(const Commit_Record& record) {
  std::set<std::pair<uint32_t, uint32_t>> needed;
  for (const MTF_BACKUP::Chain_Link& link : record.chain) {
    const Set_Name name = parse_set_name(link.dir);
    needed.emplace(name.seq.value_or(0), name.incarnation);
  }
  return needed;
}

/// "Needs        1.1, 2.1"
void print_chain(std::ostream& out, const Commit_Record& record) {
  const char* before = "Needs        ";
  for (const auto& [seq, incarnation] : needed_sets(record)) {
    out << before << seq << '.' << incarnation;
    before = ", ";
  }
  if (!record.chain.empty()) out << '\n';
}

}  // namespace

Object list_document(const Pool_Set& set) {
  const Commit_Record& record = set.record;
  Object document;
  insert_bytes(document, "name", record.name);
  json_spirit::insert(document)("seq", record.seq)("incarnation", record.incarnation)("time", record.begin_time)(
      "files", record.summary.file_count)("size", record.summary.total_size)(
      "stored_size", record.summary.storage_size)("compression", compression_name(record))("base", record.base)(
      "resource", set.key.resource)("host_uuid", set.key.host);
  return document;
}

std::vector<std::string> list_row(const Pool_Set& set) {
  const Commit_Record& record = set.record;
  return {printable(record.name),
          std::to_string(record.seq),
          std::to_string(record.incarnation),
          human_time(record.begin_time),
          std::to_string(record.summary.file_count),
          human_size(record.summary.total_size),
          human_size(record.summary.storage_size),
          compression_name(record),
          printable(set.key.resource),
          printable(set.key.host)};
}

Object record_document(const Pool_Set& set) {
  const Commit_Record& record = set.record;
  Array sources;
  for (const std::string& source : record.sources) {
    Object document;
    insert_bytes(document, "path", source);
    sources.emplace_back(std::move(document));
  }
  Array objects;
  for (const MTF_BACKUP::Stored_Object& object : record.objects)
    json_spirit::insert(json_spirit::append_new_object(objects))("name", object.name)("size", object.size)("hash",
                                                                                                           object.hash);
  Array chain;
  for (const auto& [seq, incarnation] : needed_sets(record))
    json_spirit::insert(json_spirit::append_new_object(chain))("seq", seq)("incarnation", incarnation);
  const MTF::Cat_Summary& summary = record.summary;
  Object document;
  insert_bytes(document, "name", record.name);
  json_spirit::insert(document)("seq", record.seq)("incarnation", record.incarnation)("host_uuid", set.key.host)(
      "resource", set.key.resource)("dir", set.key.set.dir())("set_uuid", record.set_uuid)(
      "pool_uuid", record.pool_uuid)("base", record.base)("chain", std::move(chain))("begin_time", record.begin_time)(
      "end_time", record.end_time)("compression", compression_name(record))("channels", record.channels)(
      "sources", std::move(sources))("files", summary.file_count)("directories", summary.dir_count)(
      "size", summary.total_size)("set_size", summary.inc_size)("stored_size", summary.storage_size)(
      "skipped", summary.skipped_count)("corrupt", summary.corrupt_count)("objects", std::move(objects));
  return document;
}

void print_record(std::ostream& out, const Pool_Set& set) {
  const Commit_Record& record = set.record;
  const MTF::Cat_Summary& summary = record.summary;
  out << "Set          " << set_label(record.name, record.seq, record.incarnation) << "\nHost         "
      << printable(set.key.host) << "\nResource     " << printable(set.key.resource) << "\nKind         "
      << (record.base.empty() ? "full" : "incremental, after " + printable(record.base)) << '\n';
  print_chain(out, record);
  out << "Begun        " << human_time(record.begin_time) << "\nTook         "
      << human_duration(static_cast<uint64_t>(std::max<int64_t>(record.end_time - record.begin_time, 0))) << '\n';
  for (const std::string& source : record.sources) out << "Source       " << printable(source) << '\n';
  out << "Files        " << summary.file_count << "\nDirectories  " << summary.dir_count << "\nSize         "
      << human_size(summary.total_size) << "\nIn this set  " << human_size(summary.inc_size) << "\nStored       "
      << human_size(summary.storage_size) << "\nCompression  " << compression_name(record) << '\n';
  if (summary.skipped_count != 0) out << "Skipped      " << summary.skipped_count << '\n';
  if (summary.corrupt_count != 0) out << "Corrupt      " << summary.corrupt_count << '\n';
  out << '\n';
  Table table({"OBJECT", ">SIZE", "HASH"});
  for (const MTF_BACKUP::Stored_Object& object : record.objects)
    table.add({object.name, std::to_string(object.size), object.hash});
  table.print(out);
}

}  // namespace ctl
