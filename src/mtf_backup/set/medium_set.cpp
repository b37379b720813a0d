#include "mtf_backup/set/medium_set.h"

#include <algorithm>
#include <cerrno>

#include "ace/Log_Msg.h"

namespace MTF_BACKUP {

Medium_Set::Medium_Set(Channel_Factory& factory, const Commit_Record& record, const std::string& dir,
                       Frame_Workers& workers)
    : record_(record), dir_(dir), workers_(workers), media_(std::min<size_t>(record.channels, record.objects.size())) {
  for (Medium& medium : media_) medium.storage = factory.storage();
}

Medium_Set::~Medium_Set() = default;

Medium_Id Medium_Set::id(unsigned channel) const {
  return {dir_, record_.set_uuid, channel, record_.compression};
}

std::string Medium_Set::name(unsigned channel) const {
  return dir_ + '/' + medium_name(id(channel));
}

Medium_Reader* Medium_Set::get(unsigned channel) {
  std::lock_guard<std::mutex> guard(lock_);
  if (channel >= media_.size()) {
    errno = EBADMSG;
    return nullptr;
  }
  Medium& medium = media_[channel];
  if (!medium.reader && medium.error == 0) open(channel, medium);
  errno = medium.error;
  return medium.reader.get();
}

void Medium_Set::open(unsigned channel, Medium& medium) {
  const Stored_Object* data = record_.find(medium_name(id(channel)));
  const Stored_Object* index = record_.find(index_name(id(channel)));
  if (!medium.storage) {
    medium.error = ENOMEM;
    return;
  }
  if (!data || !index) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("The commit record of %C does not name the medium of channel %u.\n"), dir_.c_str(),
               channel));
    medium.error = EBADMSG;
    return;
  }
  auto reader = std::make_unique<Medium_Reader>(*medium.storage, id(channel), data->size, index->size, workers_);
  if (reader->open())
    medium.reader = std::move(reader);
  else
    medium.error = errno ? errno : EIO;
}

void Medium_Set::cancel() {
  for (Medium& medium : media_)
    if (medium.storage) medium.storage->cancel();
}

}  // namespace MTF_BACKUP
