#include "mtf_backup/run/run_threads.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include "ace/Log_Msg.h"
#include "kolt/without_bad_alloc.h"
#include "mtf_backup/set/damage.h"
#include "task/task_context.h"

namespace MTF_BACKUP {

namespace {

constexpr std::chrono::milliseconds look_interval(100);

}  // namespace

Log_Scope::Log_Scope(ACE_Log_Msg_Callback* callback) : callback_(callback) {
  if (!callback_) return;
  ACE_Log_Msg* log = ACE_Log_Msg::instance();
  had_flag_ = ACE_BIT_ENABLED(log->flags(), ACE_Log_Msg::MSG_CALLBACK);
  previous_ = log->msg_callback(callback_);
  log->set_flags(ACE_Log_Msg::MSG_CALLBACK);
}

Log_Scope::~Log_Scope() {
  if (!callback_) return;
  ACE_Log_Msg* log = ACE_Log_Msg::instance();
  log->msg_callback(previous_);
  if (!had_flag_) log->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
}

Run_Threads::Run_Threads(Run_State& state, ACE_Log_Msg_Callback* log_callback, std::function<void()> stop)
    : state_(state),
      log_callback_(log_callback),
      stop_(std::move(stop)),
      context_(Task_Context::current()),
      damage_listener_(Damage_Listener::current()) {}

Run_Threads::~Run_Threads() {
  if (!wait(std::chrono::milliseconds(0))) {
    state_.fail(MTF::E_FAILED);
    stop_();
  }
  for (std::thread& thread : threads_) thread.join();
}

void Run_Threads::start(std::function<void()> body) {
  {
    std::lock_guard<std::mutex> guard(lock_);
    ++running_;
  }
  try {
    threads_.emplace_back([this, body = std::move(body)] { run(body); });
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to start a thread, err %C.\n"), e.what()));
    state_.fail(MTF::E_FAILED);
    std::lock_guard<std::mutex> guard(lock_);
    --running_;
  }
}

void Run_Threads::run(const std::function<void()>& body) {
  {
    Log_Scope log(log_callback_);
    Task_Context::Attach attach(context_);
    const Damage_Listener::Scope listening(damage_listener_);
    const auto work = [&] {
      body();
      return true;
    };
    if (!without_bad_alloc(work)) state_.fail(MTF::E_FAILED);
  }
  std::lock_guard<std::mutex> guard(lock_);
  --running_;
  ended_.notify_all();
}

void Run_Threads::watch(MTF::Event_Handler_var handler, const std::function<void()>& after_look) {
  bool stopped = false;
  bool ended = false;
  // Once more after the end: a cancel that came in the last moment counts too.
  while (!ended) {
    ended = wait(look_interval);
    if (handler && !state_.stopping() && handler->canceling()) state_.cancel();
    if (state_.stopping() && !stopped) {
      stop_();
      stopped = true;
    }
    if (!stopped) after_look();
  }
}

bool Run_Threads::wait(std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> guard(lock_);
  return ended_.wait_for(guard, timeout, [this] { return running_ == 0; });
}

bool run_step(Run_State& state, MTF::Event_Handler_var handler, ACE_Log_Msg_Callback* log_callback,
              std::function<void()> stop, const std::function<MTF::Error_Code()>& step) {
  Run_Threads threads(state, log_callback, std::move(stop));
  threads.start([&] {
    const MTF::Error_Code code = step();
    if (code != MTF::E_OK) state.fail(code);
  });
  threads.watch(handler);
  return !state.stopping();
}

}  // namespace MTF_BACKUP
