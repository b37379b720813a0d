#include "json_rpc/json_rpc_thread_pool.h"

#include <cerrno>
#include <new>

#include "ace/Log_Msg.h"
#include "ace/Singleton.h"
#include "kolt/check_macros.h"
#include "kolt/metrics.h"

typedef ACE_Unmanaged_Singleton<JSON_RPC_Thread_Pool, ACE_Thread_Mutex> Thread_Pool_Singleton;

namespace {

const kolt::Gauge queued_requests("tessarin_rpc_queued_requests",
                                  "Requests that wait for a thread of the JSON-RPC pool.");

}  // namespace

JSON_RPC_Thread_Pool* JSON_RPC_Thread_Pool::instance() {
  return Thread_Pool_Singleton::instance();
}

void JSON_RPC_Thread_Pool::close_instance() {
  Thread_Pool_Singleton::close();
}

JSON_RPC_Thread_Pool::~JSON_RPC_Thread_Pool() {
  close();
}

int JSON_RPC_Thread_Pool::open(const char* name, size_t n_threads, size_t max_queued, size_t stack_size,
                               time_t expiry) {
  if (pool_) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("The JSON-RPC thread pool is open already.\n")), -1);
  std::unique_ptr<Thread_Pool_Helper> pool(new (std::nothrow) Thread_Pool_Helper(name, n_threads));
  if (!pool) {
    errno = ENOMEM;
    return -1;
  }
  if (pool->open(max_queued, stack_size) == -1) return -1;
  pool_ = std::move(pool);
  expiry_ = expiry;
  return 0;
}

int JSON_RPC_Thread_Pool::close() {
  pool_.reset();
  return 0;
}

int JSON_RPC_Thread_Pool::schedule(const ACE_Time_Value& abs_timeout, const Thread_Pool_Helper::function_type& f) {
  KOLT_RETURN_IF_NULL(pool_, -1);
  queued_requests.add(1);
  const int result = pool_->schedule(abs_timeout, [f] {
    queued_requests.add(-1);
    f();
  });
  if (result == -1) queued_requests.add(-1);
  return result;
}
