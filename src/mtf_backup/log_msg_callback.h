#pragma once

#include "ace/Log_Msg_Callback.h"
#include "ace/Recursive_Thread_Mutex.h"
#include "ace/Refcounted_Auto_Ptr.h"

/// A receiver of the log lines of one run. Empty: the lines go where those of the calling thread go.
typedef ACE_Refcounted_Auto_Ptr<ACE_Log_Msg_Callback, ACE_Recursive_Thread_Mutex> ACE_Log_Msg_Callback_var;
