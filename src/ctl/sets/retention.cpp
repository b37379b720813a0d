#include "ctl/sets/retention.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <tuple>

#include "ctl/sets/set_chains.h"
#include "ctl/sets/set_name.h"

namespace ctl {

namespace {

std::string local_time(int64_t seconds, const char* format) {
  const time_t time = seconds;
  tm local{};
  char text[40];
  if (localtime_r(&time, &local) == nullptr || strftime(text, sizeof text, format, &local) == 0) return "?";
  return text;
}

/// Keeps the newest set of each of the last @a count periods. @param newest_first  numbers of sets of one name.
void keep_periods(const std::vector<Pool_Set>& sets, const std::vector<size_t>& newest_first, unsigned count,
                  const char* format, std::vector<Retention_Verdict>& verdicts) {
  std::string last;
  for (const size_t number : newest_first) {
    const std::string period = local_time(sets[number].record.begin_time, format);
    if (period == last) continue;
    if (count-- == 0) return;
    last = period;
    verdicts[number].keep = true;
    verdicts[number].reasons.push_back(period);
  }
}

void judge_name(const std::vector<Pool_Set>& sets, std::vector<size_t>& numbers, const Retention& rules,
                std::vector<Retention_Verdict>& verdicts) {
  const auto age = [&](size_t number) {
    const MTF_BACKUP::Commit_Record& record = sets[number].record;
    return std::tuple(record.begin_time, record.seq, record.incarnation);
  };
  std::sort(numbers.begin(), numbers.end(), [&](size_t a, size_t b) { return age(a) > age(b); });
  for (size_t i = 0; i < std::min<size_t>(rules.last, numbers.size()); ++i) {
    verdicts[numbers[i]].keep = true;
    verdicts[numbers[i]].reasons.push_back("last " + std::to_string(i + 1));
  }
  keep_periods(sets, numbers, rules.daily, "day %Y-%m-%d", verdicts);
  keep_periods(sets, numbers, rules.weekly, "week %G-W%V", verdicts);
}

}  // namespace

std::vector<Retention_Verdict> judge(const std::vector<Pool_Set>& sets, const Retention& rules,
                                     const std::string& name) {
  std::map<std::tuple<std::string, std::string, std::string>, std::vector<size_t>> names;
  std::vector<Retention_Verdict> verdicts(sets.size());
  for (size_t i = 0; i < sets.size(); ++i)
    if (name.empty() || sets[i].record.name == name)
      names[{sets[i].key.host, sets[i].key.resource, sets[i].key.set.name}].push_back(i);
    else
      verdicts[i] = {true, {"another name"}, 0};
  for (auto& [place, numbers] : names) judge_name(sets, numbers, rules, verdicts);
  for (Retention_Verdict& verdict : verdicts) verdict.by_rules = verdict.reasons.size();

  // A chain names all sets that it needs, so nothing that is kept for another one needs more.
  const std::vector<Retention_Verdict> by_rules = verdicts;
  const Set_Chains chains(sets);
  for (size_t i = 0; i < sets.size(); ++i)
    for (const size_t user : chains.dependents(sets[i].key)) {
      if (!by_rules[user].keep) continue;
      verdicts[i].keep = true;
      verdicts[i].reasons.push_back("needed by " + set_label(sets[user].key));
    }
  return verdicts;
}

}  // namespace ctl
