#pragma once

#include <cerrno>
#include <new>
#include <utility>

#include "ace/Log_Msg.h"

/// Does @a work, which returns whether it succeeded, where no exception may get out, as at the top of a thread.
/// @retval false  @a work said so, or memory ran out: then errno is ENOMEM, after "Out of memory." at LM_ERROR.
template <typename Work>
[[nodiscard]] bool without_bad_alloc(Work&& work) {
  try {
    return std::forward<Work>(work)();
  } catch (const std::bad_alloc&) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Out of memory.\n")));
    errno = ENOMEM;
    return false;
  }
}
