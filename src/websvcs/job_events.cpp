#include "websvcs/job_events.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <system_error>

#include "ace/Log_Msg.h"
#include "json_spirit/assign.h"
#include "k8s/api/k8s_session.h"
#include "kolt/get_env_r.h"
#include "kolt/metrics.h"

using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr std::chrono::seconds longest_farewell(5);
constexpr size_t most_error_bytes = 512;

kolt::Counter events(const char* outcome) {
  return kolt::Counter("tessarin_events_total", "Events about jobs: sent, failed, or dropped where too many wait.",
                       {{"outcome", outcome}});
}

const kolt::Counter sent_events = events("sent");
const kolt::Counter failed_events = events("failed");
const kolt::Counter dropped_events = events("dropped");

/// Part of a URL: what an object may be called.
bool is_object_name(const std::string& text) {
  constexpr char allowed[] = "abcdefghijklmnopqrstuvwxyz0123456789.-";
  return !text.empty() && text.size() <= 253 && text.find_first_not_of(allowed) == std::string::npos;
}

std::string rfc3339(int64_t milliseconds) {
  const time_t seconds = milliseconds / 1000;
  struct tm utc = {};
  ::gmtime_r(&seconds, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

const char* job_of(const Task_Record& record) {
  return record.kind == "backup" ? "Backup" : record.kind == "restore" ? "Restore" : "Job";
}

const char* what_happened(const Task_Record& record) {
  if (!record.ended()) return "Started";
  return record.state == "completed" ? "Completed" : record.state == "canceled" ? "Canceled" : "Failed";
}

std::string message_of(const Task_Record& record) {
  std::string text = std::string(job_of(record)) + " job " + record.id + " ";
  if (!record.ended()) return text + "has started.";
  text += record.state;
  if (record.started != 0) text += " after " + std::to_string((record.finished - record.started) / 1000) + " seconds";
  uint64_t size = 0;
  const auto found = record.result.find("size");
  if (found != record.result.end() && found->second.type() == json_spirit::int_type) {
    size = static_cast<uint64_t>(found->second.get_int64());
    text += ", " + std::to_string(size) + " bytes";
  }
  if (!record.errors.empty()) return text + ": " + record.errors.front().substr(0, most_error_bytes);
  return text + ".";
}

}  // namespace

std::optional<Agent_Pod> Agent_Pod::from_environment() {
  const Agent_Pod pod{get_env_r("POD_NAME"), get_env_r("POD_NAMESPACE"), get_env_r("POD_UID"), get_env_r("NODE_NAME")};
  if (!is_object_name(pod.name) || !is_object_name(pod.namespace_)) return std::nullopt;
  return pod;
}

Value job_event(const Agent_Pod& pod, const Task_Record& record, int64_t now_milliseconds) {
  char suffix[32];
  static std::atomic<unsigned> number{0};
  std::snprintf(suffix, sizeof suffix, ".%llx%04x", static_cast<unsigned long long>(now_milliseconds),
                ++number & 0xffffU);
  const std::string now = rfc3339(now_milliseconds);

  Value document;
  Object& event = document.to_new_object();
  event["apiVersion"] = "v1";
  event["kind"] = "Event";
  json_spirit::insert(event["metadata"].to_new_object())("name", pod.name.substr(0, 220) + suffix)("namespace",
                                                                                                   pod.namespace_);
  Object& about = event["involvedObject"].to_new_object();
  json_spirit::insert(about)("apiVersion", "v1")("kind", "Pod")("name", pod.name)("namespace", pod.namespace_);
  if (!pod.uid.empty()) about["uid"] = pod.uid;
  json_spirit::insert(event["source"].to_new_object())("component", "tessarin-agent")("host", pod.node);
  event["type"] = record.ended() && record.state != "completed" ? "Warning" : "Normal";
  event["reason"] = std::string(job_of(record)) + what_happened(record);
  event["message"] = message_of(record);
  event["firstTimestamp"] = now;
  event["lastTimestamp"] = now;
  event["count"] = 1;
  return document;
}

Job_Events::Job_Events(Agent_Pod pod, Session_Maker make_session)
    : pod_(std::move(pod)), make_session_(std::move(make_session)) {}

Job_Events::~Job_Events() {
  {
    const std::lock_guard guard(lock_);
    ending_ = true;
    last_moment_ = std::chrono::steady_clock::now() + longest_farewell;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

int Job_Events::start() {
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error& e) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to start the thread of the events: %C\n"), e.what()), -1);
  }
  return 0;
}

void Job_Events::tell(const Task_Record& record) {
  if (!record.ended() && record.state != "running") return;
  Value event = job_event(pod_, record, now_milliseconds());
  {
    const std::lock_guard guard(lock_);
    if (queue_.size() >= max_queued || ending_) return dropped_events.add();
    queue_.push_back(std::move(event));
  }
  changed_.notify_all();
}

void Job_Events::run() {
  Value event;
  while (next(event)) send(event);
}

/// @retval false  the object ends.
bool Job_Events::next(Value& event) {
  std::unique_lock guard(lock_);
  changed_.wait(guard, [this] { return ending_ || !queue_.empty(); });
  if (ending_ && std::chrono::steady_clock::now() > last_moment_) {
    dropped_events.add(static_cast<double>(queue_.size()));
    return false;
  }
  if (queue_.empty()) return false;
  event = std::move(queue_.front());
  queue_.pop_front();
  return true;
}

// A server that is away is told by the session, each time; a refusal here, once.
void Job_Events::send(const Value& event) {
  if (!session_) session_ = make_session_();
  const std::string url = "/api/v1/namespaces/" + pod_.namespace_ + "/events";
  const bool answered = session_ && session_->post(url, event);
  const int status = answered ? session_->response_status() : 0;
  (status == 201 ? sent_events : failed_events).add();
  if (!answered || status == 201 || refused_) return;
  refused_ = true;
  ACE_ERROR((LM_WARNING,
             ACE_TEXT("The API server refuses events about jobs with status %d; further ones are not told.\n"),
             status));
}
