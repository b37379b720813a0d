#include "ctl/job.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "json_spirit/extract.h"
#include "json_spirit/filter.h"

namespace ctl {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds first_wait(50);
constexpr milliseconds longest_wait(500);
constexpr std::chrono::seconds cancel_interval(1);

Job read_job(const Object& document) {
  Job job;
  const Object* result = nullptr;
  const Array* errors = nullptr;
  json_spirit::extract(document)("id", job.id)("kind", job.kind)("state", job.state)("created", job.created)(
      "started", job.started)("finished", job.finished)("errors_left_out", job.errors_left_out)("result", result)(
      "errors", errors);
  if (result != nullptr)
    json_spirit::extract (*result)("size", job.size)("set_size", job.set_size)("storage_size", job.storage_size);
  if (errors != nullptr)
    for (const std::string& error : *errors | json_spirit::get_str) job.errors.push_back(error);
  job.document = document;
  return job;
}

std::vector<Job> request_jobs(Agent& agent, const Object& params) {
  const Value answer = agent.call("agent.tasks", params);
  std::vector<Job> jobs;
  const Array* tasks =
      answer.type() == json_spirit::obj_type ? json_spirit::object_get_array(answer.get_obj(), "tasks") : nullptr;
  if (tasks == nullptr) throw Failure(exit_refused, "The agent's answer holds no tasks.");
  for (const Object& task : *tasks | json_spirit::get_obj) jobs.push_back(read_job(task));
  return jobs;
}

/// Sends the cancel of an interrupted job when it is time.
class Canceler {
 public:
  Canceler(Agent& agent, const std::string& id, Progress_View& view) : agent_(agent), id_(id), view_(view) {}

  void operator()(int interrupts, const std::string& state) {
    if (interrupts == 0) return;
    if (interrupts > 1) throw Failure(exit_interrupted, "Not waiting any longer; see: tessarinctl status " + id_);
    if (state == "queued" && !told_)
      view_.say("The job waits behind another one and is canceled when it begins; interrupt again to leave it.");
    if (state == "running" && !sent_) view_.say("Canceling; interrupt again to leave the job alone.");
    told_ = true;
    const auto now = steady_clock::now();
    if (state != "running" || (sent_ && now - sent_at_ < cancel_interval)) return;
    agent_.call("k8s.cancel_job", Object());
    sent_ = true;
    sent_at_ = now;
  }

 private:
  Agent& agent_;
  const std::string& id_;
  Progress_View& view_;
  bool told_ = false;
  bool sent_ = false;
  steady_clock::time_point sent_at_;
};

}  // namespace

Exit_Code Job::exit_code() const {
  if (!ended()) return exit_not_ended;
  return state == "completed" ? exit_ok : exit_job_failed;
}

uint64_t Job::seconds() const {
  if (started == 0) return 0;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const int64_t end = finished != 0 ? finished : std::chrono::duration_cast<milliseconds>(now).count();
  return static_cast<uint64_t>(std::max<int64_t>(end - started, 0) / 1000);
}

std::vector<Job> list_jobs(Agent& agent, size_t limit) {
  Object params;
  if (limit != 0) params["limit"] = static_cast<uint64_t>(limit);
  std::vector<Job> jobs = request_jobs(agent, params);
  if (limit != 0 && jobs.size() > limit) jobs.resize(limit);
  return jobs;
}

Job find_job(Agent& agent, const std::string& id) {
  Object params;
  params["id"] = id;
  for (Job& job : request_jobs(agent, params))
    if (job.id == id) return std::move(job);
  throw Failure(exit_usage, "The agent knows no job " + id + ".");
}

Progress job_progress(Agent& agent, const std::string& id) {
  Object params;
  params["job_id"] = id;
  const Value answer = agent.call("k8s.process", params);
  Progress progress;
  if (answer.type() != json_spirit::obj_type || !json_spirit::object_get(answer.get_obj(), "state", progress.state))
    throw Failure(exit_refused, "The agent's answer holds no state.");
  json_spirit::extract(answer.get_obj())("processed", progress.processed)("total", progress.total)("speed",
                                                                                                   progress.speed);
  return progress;
}

Job watch_job(Agent& agent, const std::string& id, Progress_View& view, const Interrupt& interrupt) {
  Canceler cancel(agent, id, view);
  for (milliseconds wait = first_wait;; wait = std::min(wait * 2, longest_wait)) {
    const Progress progress = job_progress(agent, id);
    if (progress.state != "queued" && progress.state != "running") return find_job(agent, id);
    view.show(progress);
    cancel(interrupt.count(), progress.state);
    interrupt.sleep(wait);
  }
}

}  // namespace ctl
