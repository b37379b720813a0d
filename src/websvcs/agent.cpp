#include "websvcs/agent.h"

#include <signal.h>

#include <cerrno>
#include <new>
#include <string>

#include "ace/Log_Msg.h"
#include "ace/Log_Msg_Callback.h"
#include "ace/Log_Record.h"
#include "ace/Service_Config.h"
#include "host/host_manager.h"
#include "json_rpc/json_rpc_dispatcher.h"
#include "json_rpc/json_rpc_thread_pool.h"
#include "kolt/trusted_file.h"
#include "task/task_manager.h"
#include "websvcs/caller_check.h"
#include "websvcs/event_session.h"
#include "websvcs/peers.h"

namespace {

constexpr size_t pool_threads = 4;
constexpr size_t pool_queue = 512;

/// Counts the errors that this thread logs while it lives: the parser of the service configuration logs a line that it
/// does not understand, passes it over and reports success.
class Error_Counter : public ACE_Log_Msg_Callback {
 public:
  Error_Counter()
      : previous_(ACE_LOG_MSG->msg_callback(this)), had_flag_(ACE_LOG_MSG->flags() & ACE_Log_Msg::MSG_CALLBACK) {
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::MSG_CALLBACK);
  }
  ~Error_Counter() override {
    ACE_LOG_MSG->msg_callback(previous_);
    if (!had_flag_) ACE_LOG_MSG->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
  }
  void log(ACE_Log_Record& record) override { errors_ += record.type() >= LM_ERROR; }
  int errors() const { return errors_; }

 private:
  ACE_Log_Msg_Callback* const previous_;
  const bool had_flag_;
  int errors_ = 0;
};

/// Nobody waits for the answer.
class Own_Channel : public JSON_RPC_Channel {
 public:
  int send(JSON_RPC_Object_var) override { return 0; }
};

// Asks in the way of any requester: the agent knows the plug-in by its methods alone.
void cancel_running_job() {
  JSON_RPC_Request* const request = new JSON_RPC_Request;
  const JSON_RPC_Object_var message(request);
  request->method("k8s.cancel_job");
  JSON_RPC_Dispatcher::instance()->dispatch(JSON_RPC_Channel_var(new Own_Channel), message);
}

void set_limits(const Agent_Options& options, HTTP_Server_Limits& limits) {
  limits.connections = options.max_connections;
  limits.connections_per_peer = options.max_connections_per_peer;
  limits.body_bytes = options.max_request_bytes;
  limits.message_bytes = options.max_request_bytes;
  limits.idle = std::chrono::seconds(options.idle_timeout);
}

}  // namespace

int Agent::open() {
  if (!is_trusted_file(options_.svc_conf)) return -1;
  if (!options_.config.empty() && !is_trusted_file(options_.config)) return -1;
  if (!is_access_clear(options_) || set_peers(options_) == -1) return -1;
  if (!options_.host_key.empty() && !Host_Manager::instance()->load_rsa_prvkey(options_.host_key)) return -1;
  if (state_.open(options_.state_dir) == -1) return -1;
  leftovers_.sweep();
  if (!Task_Manager::instance()->open(state_.file("tasks.db"))) return -1;
  if (open_events() == -1) return -1;
  if (JSON_RPC_Thread_Pool::instance()->open("json_rpc", pool_threads, pool_queue, 0, options_.answer_timeout) == -1) {
    return -1;
  }
  if (load_methods() == -1 || bind_own_methods() == -1 || open_channel() == -1) return -1;
  ACE_DEBUG((LM_INFO, ACE_TEXT("tessarin-agent %C is ready.\n"), TESSARIN_VERSION));
  return 0;
}

// Outside of a pod there is nothing that an event could be about.
int Agent::open_events() {
  auto pod = Agent_Pod::from_environment();
  if (!pod) return 0;
  events_ = std::make_unique<Job_Events>(std::move(*pod), []() -> std::unique_ptr<K8S_Session> {
    auto session = std::make_unique<Event_Session>();
    if (!session->init()) return nullptr;
    return session;
  });
  Task_Manager::instance()->observe([this](const Task_Record& record) { events_->tell(record); });
  return events_->start();
}

int Agent::bind_own_methods() {
  std::string host_uuid;
  if (state_.host_uuid(host_uuid) == -1) return -1;
  auto* const dispatcher = JSON_RPC_Dispatcher::instance();
  Agent_Info info{host_uuid, state_.path(), {"agent.info", "agent.tasks"}, ""};
  for (const std::string& method : dispatcher->methods()) info.methods.insert(method);
  const auto plugins = dispatcher->origins();
  if (!plugins.empty()) info.plugin = *plugins.begin();
  info_ = std::make_unique<Agent_Method>(info);
  tasks_ = std::make_unique<Agent_Method>(agent_tasks);
  return dispatcher->bind("agent.info", info_.get()) == -1 || dispatcher->bind("agent.tasks", tasks_.get()) == -1 ? -1
                                                                                                                  : 0;
}

// The debug flag of the configuration is ignored: it would change which priorities are logged.
int Agent::load_methods() {
  std::string words[] = {"tessarin-agent", "-f", options_.svc_conf};
  ACE_TCHAR* argv[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
  services_open_ = true;
  const Error_Counter counter;
  const int failures = ACE_Service_Config::open(3, argv, ACE_DEFAULT_LOGGER_KEY, true, true, true);
  if (failures == 0 && counter.errors() == 0) return 0;
  ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to load all services of '%C'.\n"), options_.svc_conf.c_str()), -1);
}

int Agent::open_channel() {
  HTTP_Server_Options options;
  options.path = channel_path;
  options.limits.answer = std::chrono::seconds(JSON_RPC_Thread_Pool::instance()->expiry());
  set_limits(options_, options.limits);
  JSON_RPC_Service::Options service_options;
  service_options.max_batch = options_.max_batch;
  service_ = std::make_unique<JSON_RPC_Service>(*JSON_RPC_Dispatcher::instance(), service_options);
  pages_ = std::make_unique<Agent_Pages>(options_, state_.path());
  server_ = std::make_unique<HTTP_Server>(*service_, options);
  pages_->add_to(*server_);
  if (server_->listen_unix(options_.socket) == -1) return -1;
  ACE_DEBUG((LM_INFO, ACE_TEXT("Listening on '%C'.\n"), options_.socket.c_str()));
  if (!options_.listen_address.empty() && listen() == -1) return -1;
  return pages_->start() == -1 ? -1 : server_->start();
}

int Agent::listen() {
  const std::string& address = options_.listen_address;
  const bool tls = !options_.tls_cert.empty();
  std::shared_ptr<Access_Check> access;
  if (!options_.token_file.empty() || options_.token_review) {
    access = Caller_Check::make(options_);
  } else if (std::string token; state_.token(token) == 0) {
    access = std::make_shared<Token_Check>(token);
  }
  if (!access) return -1;
  const int result =
      tls ? server_->listen_tls(address, options_.listen_port, {options_.tls_cert, options_.tls_key}, access)
          : server_->listen_tcp(address, options_.listen_port, access);
  if (result == -1) return -1;
  std::string callers = options_.token_file.empty() ? "" : ", tokens in '" + options_.token_file + "'";
  if (options_.token_review) callers += ", tokens reviewed by the API server";
  if (callers.empty()) callers = ", token in '" + state_.file("token") + "'";
  ACE_DEBUG((LM_INFO, ACE_TEXT("Listening on %C port %d%C%C.\n"), address.c_str(), static_cast<int>(server_->port()),
             tls ? " by TLS" : "", callers.c_str()));
  return 0;
}

void Agent::run() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  for (;;) {
    const int signal = ::sigwaitinfo(&signals, nullptr);
    if (signal == SIGTERM || signal == SIGINT) break;
    if (signal == SIGHUP) ACE_DEBUG((LM_INFO, ACE_TEXT("SIGHUP: the configuration is read at start only.\n")));
  }
  ACE_DEBUG((LM_INFO, ACE_TEXT("tessarin-agent ends.\n")));
}

// The plug-in's code is in use until the last task, handler and queued request are gone.
void Agent::close() {
  server_.reset();
  pages_.reset();
  Task_Manager::instance()->close(cancel_running_job);
  JSON_RPC_Thread_Pool::instance()->close();
  Task_Manager::close_instance();
  events_.reset();
  if (services_open_) ACE_Service_Config::close();
  JSON_RPC_Dispatcher::close_instance();
  JSON_RPC_Thread_Pool::close_instance();
}
