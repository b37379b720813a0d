#include "mtf_backup/set/commit_record.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "ace/Log_Msg.h"
#include "client_io/object_key.h"
#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_value.h"
#include "kolt/printable.h"
#include "mtf_backup/set/damage.h"
#include "mtf_backup/set/hash.h"
#include "mtf_backup/set/json_members.h"
#include "mtf_backup/set/percent.h"

namespace MTF_BACKUP {

namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

// The document is {"checksum":"<digits>","record":<record>} and a line end, exactly so: the checksum is over the bytes
// of <record> as they stand.
constexpr std::string_view head = "{\"checksum\":\"";
constexpr std::string_view middle = "\",\"record\":";
constexpr std::string_view tail = "}\n";
constexpr size_t digits = 32;

constexpr uint64_t most_channels = 10000;

std::string digest(std::string_view record) {
  return hash_text(XXH3_128bits(record.data(), record.size()));
}

bool is_digest(std::string_view text) {
  return text.size() == digits && text.find_first_not_of("0123456789abcdef") == text.npos;
}

// The part that the checksum covers; empty where the text is no such document.
std::string_view checked_part(std::string_view text) {
  const size_t around = head.size() + digits + middle.size();
  if (text.size() < around + tail.size() || !text.starts_with(head) || !text.ends_with(tail) ||
      text.substr(head.size() + digits, middle.size()) != middle)
    return {};
  const std::string_view record = text.substr(around, text.size() - around - tail.size());
  return digest(record) == text.substr(head.size(), digits) ? record : std::string_view();
}

Object summary_object(const MTF::Cat_Summary& summary) {
  return Object{{"corrupt_count", uint64_t(summary.corrupt_count)}, {"dir_count", uint64_t(summary.dir_count)},
                {"file_count", uint64_t(summary.file_count)},       {"inc_size", uint64_t(summary.inc_size)},
                {"skipped_count", uint64_t(summary.skipped_count)}, {"storage_size", uint64_t(summary.storage_size)},
                {"total_size", uint64_t(summary.total_size)}};
}

bool read_summary(const Object& object, MTF::Cat_Summary& summary) {
  return Json_Members(object)
      .number("corrupt_count", summary.corrupt_count)
      .number("dir_count", summary.dir_count)
      .number("file_count", summary.file_count)
      .number("inc_size", summary.inc_size)
      .number("skipped_count", summary.skipped_count)
      .number("storage_size", summary.storage_size)
      .number("total_size", summary.total_size)
      .complete();
}

bool read_objects(const Array& array, std::vector<Stored_Object>& objects) {
  for (const Value& value : array) {
    Stored_Object object;
    if (value.type() != json_spirit::obj_type || !Json_Members(value.get_obj())
                                                      .plain_text("hash", object.hash)
                                                      .plain_text("name", object.name)
                                                      .number("size", object.size)
                                                      .complete())
      return false;
    const auto same = [&](const Stored_Object& other) { return other.name == object.name; };
    if (!is_digest(object.hash) || !client_io::is_key_component(object.name) ||
        std::any_of(objects.begin(), objects.end(), same))
      return false;
    objects.push_back(std::move(object));
  }
  return true;
}

bool read_sources(const Array& array, std::vector<std::string>& sources) {
  for (const Value& value : array) {
    std::string source;
    if (value.type() != json_spirit::str_type || !percent_decode(value.get_str(), source)) return false;
    sources.push_back(std::move(source));
  }
  return true;
}

bool read_chain(const Array& array, std::vector<Chain_Link>& chain) {
  for (const Value& value : array) {
    Chain_Link link;
    if (value.type() != json_spirit::obj_type ||
        !Json_Members(value.get_obj()).text("dir", link.dir).text("set_uuid", link.set_uuid).complete())
      return false;
    const auto same = [&](const Chain_Link& other) { return other.dir == link.dir; };
    if (!client_io::is_key(link.dir) || std::any_of(chain.begin(), chain.end(), same)) return false;
    chain.push_back(std::move(link));
  }
  return true;
}

bool read_record(const Object& object, Commit_Record& record) {
  uint64_t format = 0;
  uint64_t compression = 0;
  uint64_t channels = 0;
  const Array* chain = nullptr;
  const Array* objects = nullptr;
  const Array* sources = nullptr;
  const Object* summary = nullptr;
  const bool complete = Json_Members(object)
                            .text("base", record.base)
                            .number("begin_time", record.begin_time)
                            .array("chain", chain)
                            .number("channels", channels)
                            .number("compression", compression)
                            .number("end_time", record.end_time)
                            .number("format", format)
                            .text("host_uuid", record.host_uuid)
                            .number("incarnation", record.incarnation)
                            .text("minor_resource_id", record.minor_resource_id)
                            .text("name", record.name)
                            .array("objects", objects)
                            .text("pool_uuid", record.pool_uuid)
                            .number("seq", record.seq)
                            .text("set_uuid", record.set_uuid)
                            .array("sources", sources)
                            .object("summary", summary)
                            .complete();
  if (!complete || compression >= COMPR_MAX || channels > most_channels || record.incarnation == 0 ||
      record.name.empty() || (record.base.empty() && !chain->empty()))
    return false;
  record.compression = static_cast<Compression_Method>(compression);
  record.channels = static_cast<unsigned>(channels);
  return read_objects(*objects, record.objects) && read_sources(*sources, record.sources) &&
         read_chain(*chain, record.chain) && read_summary(*summary, record.summary);
}

// The version is looked at before all else: what a newer format holds is not known here.
bool is_newer(const Object& object) {
  const auto format = object.find("format");
  return format != object.end() && format->second.type() == json_spirit::int_type &&
         format->second.get_uint64() > Commit_Record::current_format;
}

}  // namespace

const Stored_Object* Commit_Record::find(const std::string& object_name) const {
  for (const Stored_Object& object : objects)
    if (object.name == object_name) return &object;
  return nullptr;
}

std::string Commit_Record::to_text() const {
  Array stored;
  for (const Stored_Object& object : objects)
    stored.push_back(Object{{"hash", object.hash}, {"name", object.name}, {"size", uint64_t(object.size)}});
  Array paths;
  for (const std::string& source : sources) paths.push_back(percent_encode(source));
  Array links;
  for (const Chain_Link& link : chain)
    links.push_back(Object{{"dir", percent_encode(link.dir)}, {"set_uuid", percent_encode(link.set_uuid)}});
  const Object record{{"base", percent_encode(base)},
                      {"begin_time", int64_t(begin_time)},
                      {"chain", std::move(links)},
                      {"channels", uint64_t(channels)},
                      {"compression", uint64_t(compression)},
                      {"end_time", int64_t(end_time)},
                      {"format", uint64_t(current_format)},
                      {"host_uuid", percent_encode(host_uuid)},
                      {"incarnation", uint64_t(incarnation)},
                      {"minor_resource_id", percent_encode(minor_resource_id)},
                      {"name", percent_encode(name)},
                      {"objects", std::move(stored)},
                      {"pool_uuid", percent_encode(pool_uuid)},
                      {"seq", uint64_t(seq)},
                      {"set_uuid", percent_encode(set_uuid)},
                      {"sources", std::move(paths)},
                      {"summary", summary_object(summary)}};
  const std::string text = json_spirit::JSON_Dump(record, false).str();
  return std::string(head) + digest(text) + std::string(middle) + text + std::string(tail);
}

bool Commit_Record::from_text(const std::string& text, const std::string& where) {
  const std::string_view checked = checked_part(text);
  if (checked.empty()) return tell_damage(where, 0, "its checksum does not fit");
  Value document;
  if (!json_spirit::loads_json(checked, document) || document.type() != json_spirit::obj_type)
    return tell_damage(where, 0, "it is no JSON object");
  if (is_newer(document.get_obj())) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Object \"%C\" has a format that is newer than this program.\n"),
               printable(where).c_str()));
    errno = ENOTSUP;
    return false;
  }
  Commit_Record record;
  if (!read_record(document.get_obj(), record))
    return tell_damage(where, 0, "its content is not that of a commit record");
  *this = std::move(record);
  return true;
}

}  // namespace MTF_BACKUP
