#include "mtf_backup/set/damage.h"

#include <cerrno>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"

namespace MTF_BACKUP {

bool Damage::set(const std::string& where, uint64_t at, const std::string& why) {
  *this = {where, at, why};
  errno = EBADMSG;
  return false;
}

bool Damage::tell() const {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Object \"%C\" is damaged at offset %Q: %C.\n"), printable(key).c_str(), offset,
             reason.c_str()));
  errno = EBADMSG;
  return false;
}

}  // namespace MTF_BACKUP
