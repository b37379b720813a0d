#include "mtf_backup/set/damage.h"

#include <cerrno>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"

namespace MTF_BACKUP {

namespace {

thread_local Damage_Listener* listener = nullptr;

}  // namespace

bool Damage::set(const std::string& where, uint64_t at, const std::string& why) {
  *this = {where, at, why};
  errno = EBADMSG;
  return false;
}

bool Damage::tell() const {
  if (listener) {
    listener->damaged(*this);
    errno = EBADMSG;
    return false;
  }
  ACE_ERROR((LM_ERROR, ACE_TEXT("Object \"%C\" is damaged at offset %Q: %C.\n"), printable(key).c_str(), offset,
             reason.c_str()));
  errno = EBADMSG;
  return false;
}

Damage_Listener* Damage_Listener::current() {
  return listener;
}

Damage_Listener::Scope::Scope(Damage_Listener* now) : previous_(listener) {
  listener = now;
}

Damage_Listener::Scope::~Scope() {
  listener = previous_;
}

bool tell_missing(const std::string& key) {
  if (listener)
    listener->damaged({key, 0, "it is missing"});
  else
    ACE_ERROR((LM_ERROR, ACE_TEXT("Object \"%C\" is missing.\n"), printable(key).c_str()));
  errno = ENOENT;
  return false;
}

}  // namespace MTF_BACKUP
