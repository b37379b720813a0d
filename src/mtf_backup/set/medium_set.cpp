#include "mtf_backup/set/medium_set.h"

#include <algorithm>
#include <cerrno>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "mtf_backup/set/damage.h"
#include "mtf_backup/set/set_store.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t most_open_of_others = 16;

Medium_Id medium_id(const std::string& dir, const Commit_Record& record, uint32_t channel) {
  return {dir, record.set_uuid, channel, record.compression};
}

/// What a set needs and is not there is damage of that set.
int error_of_set(int error) {
  return error == ENOENT ? EBADMSG : error ? error : EIO;
}

Medium_Reader_var no_such_medium() {
  errno = EBADMSG;
  return nullptr;
}

}  // namespace

Medium_Set::Medium_Set(Channel_Factory& factory, const Commit_Record& record, const std::string& dir,
                       Frame_Workers& workers)
    : workers_(workers),
      clients_(std::max<size_t>(1, std::min<size_t>(record.channels, record.objects.size()))),
      most_open_(clients_.size() + most_open_of_others) {
  for (auto& client : clients_) client = factory.storage();
  const auto add = [this](const std::string& member_dir, const std::string& uuid) {
    members_.push_back(std::make_unique<Member>());
    members_.back()->dir = member_dir;
    members_.back()->set_uuid = uuid;
  };
  add(dir, record.set_uuid);
  members_.front()->record = &record;
  for (const Chain_Link& link : record.chain) add(link.dir, link.set_uuid);
}

/// What is still being read ahead is wanted by nobody.
Medium_Set::~Medium_Set() {
  cancel();
}

std::string Medium_Set::name(uint32_t set, uint32_t channel) {
  if (set >= members_.size()) return "set " + std::to_string(set);
  Member& member = *members_[set];
  const Commit_Record* record = record_of(member);
  return member.dir + '/' + medium_name(medium_id(member.dir, record ? *record : Commit_Record(), channel));
}

Medium_Reader_var Medium_Set::get(uint32_t set, uint32_t channel) {
  if (set >= members_.size()) return no_such_medium();
  const Commit_Record* record = record_of(*members_[set]);
  if (!record) return nullptr;
  if (channel >= record->channels) return no_such_medium();
  Medium_var medium;
  {
    std::lock_guard<std::mutex> guard(lock_);
    Medium_var& found = media_[{set, channel}];
    if (!found) found = std::make_shared<Medium>();
    medium = found;
    if (medium->reader || medium->error) return use(*medium);
  }
  std::lock_guard<std::mutex> opening(medium->opening);
  {
    std::lock_guard<std::mutex> guard(lock_);
    if (medium->reader || medium->error) return use(*medium);
  }
  Medium_Reader_var reader = open(*members_[set], *record, channel);
  const int error = reader ? 0 : error_of_set(errno);
  Medium_Reader_var dropped;  // ends its own work, which others need not wait for
  std::lock_guard<std::mutex> guard(lock_);
  medium->reader = std::move(reader);
  medium->error = error;
  if (medium->reader && ++open_ > most_open_) dropped = drop_oldest();
  return use(*medium);
}

Medium_Reader_var Medium_Set::use(Medium& medium) {
  medium.last_use = ++use_;
  errno = medium.error;
  return medium.reader;
}

/// Not the one opened just now: it has not been used yet.
Medium_Reader_var Medium_Set::drop_oldest() {
  Medium* oldest = nullptr;
  for (const auto& [key, medium] : media_)
    if (medium->reader && medium->last_use > 0 && (!oldest || medium->last_use < oldest->last_use))
      oldest = medium.get();
  if (!oldest) return nullptr;
  --open_;
  oldest->last_use = 0;
  return std::exchange(oldest->reader, nullptr);
}

/// Null with errno; logged once, but for a cancel.
const Commit_Record* Medium_Set::record_of(Member& member) {
  std::lock_guard<std::mutex> guard(member.lock);
  if (!member.record && member.error == 0 && !read_record(member)) {
    const char* why = errno == ENOENT ? "is missing" : "cannot be read";
    member.error = error_of_set(errno);
    if (member.error != ECANCELED)
      ACE_ERROR((LM_ERROR, ACE_TEXT("Set %C, which this one builds on, %C.\n"), printable(member.dir).c_str(), why));
  }
  errno = member.error;
  return member.record;
}

bool Medium_Set::read_record(Member& member) {
  if (!clients_.front()) {
    errno = ENOMEM;
    return false;
  }
  auto record = std::make_unique<Commit_Record>();
  if (!Set_Store(clients_.front()).read(member.dir, *record)) return false;
  if (record->set_uuid != member.set_uuid) return tell_damage(member.dir, 0, "it is another set than was built on");
  record->chain.clear();
  record->chain.shrink_to_fit();
  member.read = std::move(record);
  member.record = member.read.get();
  return true;
}

Medium_Reader_var Medium_Set::open(const Member& member, const Commit_Record& record, uint32_t channel) {
  const Medium_Id id = medium_id(member.dir, record, channel);
  const Stored_Object* data = record.find(medium_name(id));
  const Stored_Object* index = record.find(index_name(id));
  const auto& client = clients_[channel % clients_.size()];
  if (!client) {
    errno = ENOMEM;
    return nullptr;
  }
  if (!data || !index) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("The commit record of %C does not name the medium of channel %u.\n"),
               printable(member.dir).c_str(), channel));
    errno = EBADMSG;
    return nullptr;
  }
  auto reader = std::make_shared<Medium_Reader>(*client, id, data->size, index->size, workers_);
  return reader->open() ? reader : nullptr;
}

void Medium_Set::cancel() {
  for (const auto& client : clients_)
    if (client) client->cancel();
}

}  // namespace MTF_BACKUP
