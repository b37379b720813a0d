#include "mtf_backup/set/set_key.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <utility>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t seq_digits = 10;

bool parse_number(std::string_view text, uint32_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

// Takes the last component off @a key, which keeps at least one.
bool take_last(std::string_view& key, std::string_view& last) {
  const size_t slash = key.rfind('/');
  if (slash == key.npos) return false;
  last = key.substr(slash + 1);
  key = key.substr(0, slash);
  return true;
}

// "<host>/<resource>/<name>/<seq>.<incarnation>/commit", where a resource may have several components.
bool parse_pool_key(std::string_view key, Pool_Key& parts) {
  std::string_view place = key;
  std::string_view part;
  for (int i = 0; i < 3; ++i)
    if (!take_last(place, part)) return false;
  const size_t slash = place.find('/');
  if (slash == place.npos || !parse_set_key(key.substr(place.size() + 1), parts.set)) return false;
  parts.host = place.substr(0, slash);
  parts.resource = place.substr(slash + 1);
  return parts.set.object == commit_name;
}

}  // namespace

std::string seq_part(uint32_t seq) {
  const std::string number = std::to_string(seq);
  return std::string(seq_digits - number.size(), '0') + number + ".";
}

std::string set_dir(const std::string& name, uint32_t seq, uint32_t incarnation) {
  return name + "/" + seq_part(seq) + std::to_string(incarnation);
}

std::string Set_Key::dir() const {
  return set_dir(name, seq, incarnation);
}

bool parse_set_key(std::string_view key, Set_Key& parts) {
  const size_t first = key.find('/');
  const size_t second = first == key.npos ? key.npos : key.find('/', first + 1);
  if (second == key.npos) return false;
  const std::string_view numbers = key.substr(first + 1, second - first - 1);
  if (numbers.size() <= seq_digits || numbers[seq_digits] != '.') return false;
  parts.name = key.substr(0, first);
  parts.object = key.substr(second + 1);
  return parse_number(numbers.substr(0, seq_digits), parts.seq) &&
         parse_number(numbers.substr(seq_digits + 1), parts.incarnation) && parts.incarnation > 0 &&
         parts.object.find('/') == std::string::npos && key.starts_with(parts.dir() + "/");
}

bool list_below(Client_IO_Base& storage, const std::string& prefix, const Client_IO_Base::List_Callback& each) {
  bool strayed = false;
  const bool listed = storage.list(prefix, [&](const Client_IO_Base::Object_Info& info) {
    strayed = !info.key.starts_with(prefix);
    if (!strayed) return each(info);
    ACE_ERROR((LM_ERROR, ACE_TEXT("The storage lists \"%C\" where \"%C\" was asked for.\n"),
               printable(info.key).c_str(), printable(prefix).c_str()));
    return false;
  });
  if (strayed) errno = EIO;
  return listed;
}

bool list_set_keys(Client_IO_Base& storage, const std::string& prefix, std::vector<Set_Key>& keys) {
  return list_below(storage, prefix, [&](const Client_IO_Base::Object_Info& info) {
    Set_Key parts;
    if (parse_set_key(info.key, parts)) keys.push_back(std::move(parts));
    return true;
  });
}

bool list_pool(Client_IO_Base& pool, const std::string& host, const std::string& resource,
               std::vector<Pool_Key>& sets) {
  std::string prefix = host.empty() ? "" : host + "/";
  if (!host.empty() && !resource.empty()) prefix += resource + "/";
  std::vector<Pool_Key> found;
  const bool all = pool.list(prefix, [&](const Client_IO_Base::Object_Info& info) {
    Pool_Key key;
    if (parse_pool_key(info.key, key) && (resource.empty() || key.resource == resource))
      found.push_back(std::move(key));
    return true;
  });
  if (!all) return false;
  std::sort(found.begin(), found.end(), [](const Pool_Key& a, const Pool_Key& b) { return a.order() < b.order(); });
  sets = std::move(found);
  return true;
}

}  // namespace MTF_BACKUP
