#include "kolt/thread_helper.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include "ace/Log_Msg.h"

const Thread_Pool_Helper::function_type Thread_Pool_Helper::EMPTY;

namespace {

// The mark that ends a worker is queued by its address, so that it needs no memory of its own.
Thread_Pool_Helper::function_type* end_mark() {
  return const_cast<Thread_Pool_Helper::function_type*>(&Thread_Pool_Helper::EMPTY);
}

// Copying may allocate inside the function's own object, too.
std::unique_ptr<Thread_Pool_Helper::function_type> heap_copy(const Thread_Pool_Helper::function_type& fn) {
  std::unique_ptr<Thread_Pool_Helper::function_type> copy;
  try {
    copy.reset(new (std::nothrow) Thread_Pool_Helper::function_type(fn));
  } catch (const std::bad_alloc&) {
  }
  if (!copy) errno = ENOMEM;
  return copy;
}

}  // namespace

Thread_Pool_Helper::Thread_Pool_Helper(const char* name, size_t n_threads)
    : _name(name, std::min<size_t>(15, ACE_OS::strlen(name))),
      _n_threads(n_threads),
      _flags(THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED),
      _priority(ACE_DEFAULT_THREAD_PRIORITY) {}

Thread_Pool_Helper::~Thread_Pool_Helper() {
  shutdown();
}

void Thread_Pool_Helper::thread_attributes(long flags, long priority) {
  _flags = flags;
  _priority = priority;
}

void Thread_Pool_Helper::scheduling(int policy, int nice_value, int io_priority) {
  _policy = policy;
  _nice_value = nice_value;
  _io_priority = io_priority;
}

int Thread_Pool_Helper::open(size_t max_queued, size_t stack_size) {
  const size_t queue_bytes = std::max<size_t>(1, max_queued) * sizeof(function_type);
  msg_queue()->high_water_mark(queue_bytes);
  msg_queue()->low_water_mark(queue_bytes - sizeof(function_type));
  // One at a time: ACE loses count of its threads when it starts several and only some of them come up.
  for (size_t i = 0; i < _n_threads; ++i) {
    if (activate(_flags, 1, 1, _priority, -1, nullptr, nullptr, nullptr, &stack_size) == -1) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to start thread %B of pool '%C': %m\n"), i + 1, _name.c_str()));
      shutdown();
      return -1;
    }
  }
  return 0;
}

void Thread_Pool_Helper::shutdown() {
  for (size_t left = thr_count(); left > 0; --left) {
    Thread_Pool_Helper_Base::putq(end_mark());
  }
  wait();
  ACE_Time_Value at_once = ACE_Time_Value::zero;
  for (function_type* fn = nullptr; getq(fn, &at_once) != -1;) {
    if (fn != end_mark()) delete fn;
  }
}

int Thread_Pool_Helper::putq(const function_type& fn, bool front, ACE_Time_Value* timeout) {
  if (thr_count() == 0) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("No active worker thread!\n")), -1);
  }
  auto copy = heap_copy(fn);
  if (!copy) return -1;

  int result;
  do {
    result = front ? ungetq(copy.get(), timeout) : Thread_Pool_Helper_Base::putq(copy.get(), timeout);
  } while (result < 0 && errno == EINTR);

  if (result > 0) {
    copy.release();
  } else {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to schedule task, errno=%d, %m\n"), ACE_OS::last_error()));
  }
  return result;
}

int Thread_Pool_Helper::svc() {
  apply_scheduling();
  for (function_type* fn = nullptr;;) {
    if (getq(fn) == -1) {
      if (errno == EINTR) continue;
      ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Worker of pool '%C' ends: %m\n"), _name.c_str()), -1);
    }
    if (fn == end_mark()) return 0;
    const std::unique_ptr<function_type> owner(fn);
    run(*fn);
  }
}

void Thread_Pool_Helper::run(function_type& fn) const {
  try {
    if (fn) fn();
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Exception in a function of pool '%C': %C\n"), _name.c_str(), e.what()));
  } catch (...) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Unknown exception in a function of pool '%C'.\n"), _name.c_str()));
  }
}

void Thread_Pool_Helper::apply_scheduling() const {
  pthread_setname_np(pthread_self(), _name.c_str());
  const id_t tid = static_cast<id_t>(syscall(SYS_gettid));
  const sched_param param{};
  const int io_priority_of_process = 1;  // the kernel's IOPRIO_WHO_PROCESS, which means one thread
  if (_policy != -1 && sched_setscheduler(tid, _policy, &param) == -1) {
    ACE_ERROR((LM_WARNING, ACE_TEXT("Pool '%C' goes without scheduling policy %d: %m\n"), _name.c_str(), _policy));
  }
  if (_nice_value != 0 && setpriority(PRIO_PROCESS, tid, _nice_value) == -1) {
    ACE_ERROR((LM_WARNING, ACE_TEXT("Pool '%C' goes without nice value %d: %m\n"), _name.c_str(), _nice_value));
  }
  if (_io_priority != -1 && syscall(SYS_ioprio_set, io_priority_of_process, tid, _io_priority) == -1) {
    ACE_ERROR((LM_WARNING, ACE_TEXT("Pool '%C' goes without I/O priority %d: %m\n"), _name.c_str(), _io_priority));
  }
}
