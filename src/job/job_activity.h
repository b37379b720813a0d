#pragma once

#include <ctime>

#include "ace/Basic_Types.h"
#include "kolt/job_state.h"

/// A job as its owner keeps it: the definition it comes from, its schedule, and how far the current run has come.
struct Job_Activity {
  ACE_UINT32 magic = 0;
  ACE_UINT32 version = 0;
  ACE_UINT64 id = 0;
  ACE_UINT64 def_id = 0;
  ACE_UINT64 uid = 0;
  int type = 0;
  bool enabled = false;
  Job_State state = JOB_STATE_NONE;
  time_t last_run_time = 0;
  time_t next_run_time = 0;
  time_t start_time = 0;
  ACE_UINT64 size = 0;              ///< bytes of the sources
  ACE_UINT64 set_size = 0;          ///< bytes in the set
  ACE_UINT64 set_storage_size = 0;  ///< bytes that the set takes in the pool
  int progress = 0;                 ///< percent
  ACE_UINT64 processed_size = 0;    ///< bytes
  ACE_UINT64 speed = 0;             ///< bytes per second
};
