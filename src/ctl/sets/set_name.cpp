#include "ctl/sets/set_name.h"

#include <algorithm>
#include <charconv>

#include "ctl/failure.h"
#include "kolt/printable.h"
#include "mtf_backup/set/set_store.h"

namespace ctl {

using MTF_BACKUP::Pool_Key;

namespace {

bool parse_number(std::string_view text, uint32_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

/// "SEQ" or "SEQ.INCARNATION".
bool parse_numbers(std::string_view text, Set_Name& wanted) {
  const size_t dot = text.find('.');
  uint32_t seq = 0;
  uint32_t incarnation = 0;
  if (!parse_number(text.substr(0, dot), seq)) return false;
  if (dot != text.npos && (!parse_number(text.substr(dot + 1), incarnation) || incarnation == 0)) return false;
  wanted.seq = seq;
  wanted.incarnation = incarnation;
  return true;
}

bool is_named(const Pool_Key& key, const Set_Name& wanted) {
  return key.set.name == wanted.name || key.set.name == MTF_BACKUP::encode_name(wanted.name);
}

std::vector<Pool_Key> named(const std::vector<Pool_Key>& keys, const Set_Name& wanted) {
  std::vector<Pool_Key> found;
  std::copy_if(keys.begin(), keys.end(), std::back_inserter(found),
               [&](const Pool_Key& key) { return is_named(key, wanted); });
  return found;
}

bool fits(const Pool_Key& key, const Set_Name& wanted) {
  return (!wanted.seq || *wanted.seq == key.set.seq) &&
         (wanted.incarnation == 0 || wanted.incarnation == key.set.incarnation);
}

[[noreturn]] void tell_places(const Set_Name& wanted, const std::vector<Pool_Key>& found) {
  std::string places;
  const Pool_Key* last = nullptr;
  for (const Pool_Key& key : found) {
    if (!last || last->host != key.host || last->resource != key.resource)
      places += "\n  --host " + printable(key.host) + " --resource " + printable(key.resource);
    last = &key;
  }
  throw Failure(exit_usage, "Sets '" + printable(wanted.text) + "' lie in several places; say which:" + places);
}

[[noreturn]] void tell_numbers(const Set_Name& wanted, const std::vector<Pool_Key>& all) {
  constexpr size_t most = 10;
  std::string numbers;
  const size_t first = all.size() > most ? all.size() - most : 0;
  for (size_t i = first; i < all.size(); ++i)
    numbers += ' ' + std::to_string(all[i].set.seq) + '.' + std::to_string(all[i].set.incarnation);
  throw Failure(exit_pool, "There is no set '" + printable(wanted.text) + "'. Of this name there are" +
                               (first > 0 ? " ..." : "") + numbers + ".");
}

}  // namespace

Set_Name parse_set_name(const std::string& text) {
  Set_Name wanted{text, text, std::nullopt, 0};
  const size_t sign = text.find_last_of(":/");
  if (sign == std::string::npos || sign == 0) return wanted;
  const bool directory = text[sign] == '/';
  Set_Name numbered{text, text.substr(0, sign), std::nullopt, 0};
  if (parse_numbers(std::string_view(text).substr(sign + 1), numbered) && (!directory || numbered.incarnation != 0))
    return numbered;
  return wanted;
}

Pool_Key find_set(const std::vector<Pool_Key>& keys, const std::string& text) {
  Set_Name wanted = parse_set_name(text);
  std::vector<Pool_Key> all = named(keys, wanted);
  if (all.empty()) {
    wanted = {text, text, std::nullopt, 0};  // a name may end like a number
    all = named(keys, wanted);
  }
  if (all.empty()) throw Failure(exit_pool, "There is no set '" + printable(text) + "' in the pool.");
  std::vector<Pool_Key> found;
  std::copy_if(all.begin(), all.end(), std::back_inserter(found),
               [&](const Pool_Key& key) { return fits(key, wanted); });
  if (found.empty()) tell_numbers(wanted, all);
  const Pool_Key& last = found.back();
  if (found.front().host != last.host || found.front().resource != last.resource) tell_places(wanted, found);
  return last;
}

std::vector<Pool_Key> find_sets(const std::vector<Pool_Key>& keys, const std::vector<std::string>& texts) {
  if (texts.empty()) return keys;
  std::vector<Pool_Key> found;
  for (const std::string& text : texts) {
    const Pool_Key key = find_set(keys, text);
    const auto same = [&](const Pool_Key& other) { return other.order() == key.order(); };
    if (std::none_of(found.begin(), found.end(), same)) found.push_back(key);
  }
  return found;
}

std::string set_label(const std::string& name, uint32_t seq, uint32_t incarnation) {
  return printable(name) + ':' + std::to_string(seq) + '.' + std::to_string(incarnation);
}

std::string set_label(const Pool_Key& key) {
  return set_label(key.set.name, key.set.seq, key.set.incarnation);
}

}  // namespace ctl
