#pragma once

#include "ace/Basic_Types.h"

/// How far a job is. Plain: whoever owns it keeps readers and the reporting thread apart.
struct K8S_Progress {
  ACE_UINT64 speed = 0;      ///< bytes per second
  ACE_UINT64 total = 0;      ///< bytes
  ACE_UINT64 processed = 0;  ///< bytes
};
