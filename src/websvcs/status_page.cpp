#include "websvcs/status_page.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "json_spirit/extract.h"
#include "task/task_manager.h"
#include "task/task_record.h"
#include "websvcs/html.h"
#include "websvcs/job_progress.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr int64_t day = 24LL * 60 * 60 * 1000;
constexpr size_t most_tasks = 200;

constexpr char style[] =
    ":root{color-scheme:light dark;--line:#8885;--ok:#18794e;--bad:#c62a2f;--run:#0b68cb}"
    "@media(prefers-color-scheme:dark){:root{--ok:#4cc38a;--bad:#ff8b8b;--run:#70b8ff}}"
    "body{font:16px/1.5 system-ui,sans-serif;max-width:60rem;margin:0 auto;padding:1rem}"
    "h1{font-size:1.4rem}h2{font-size:1.1rem;margin-top:2rem}"
    "table{border-collapse:collapse;width:100%}th,td{text-align:left;padding:.3rem .6rem .3rem 0;"
    "border-bottom:1px solid var(--line);vertical-align:top;white-space:nowrap}"
    "td:last-child{width:40%;white-space:normal;overflow-wrap:anywhere}"
    "th{font-weight:600}progress{width:100%}"
    ".ok,.completed{color:var(--ok)}.bad,.failed{color:var(--bad)}.running{color:var(--run)}"
    "@media(max-width:40rem){thead{display:none}tr{display:block;border-bottom:1px solid var(--line);padding:.5rem 0}"
    "td,td:last-child{display:block;width:auto;border:0;padding:.1rem "
    "0;white-space:normal}td:empty{display:none}td[data-name]::before{content:attr(data-name) \": \";font-weight:600}}";

/// A task as the page needs it.
struct Job {
  std::string id, kind, state;
  int64_t created = 0, started = 0, finished = 0;
  uint64_t size = 0, set_size = 0, storage_size = 0;
  std::string error;

  explicit Job(const Object& task) {
    const Object* result = nullptr;
    const Array* errors = nullptr;
    json_spirit::extract(task)("id", id)("kind", kind)("state", state)("created", created)("started", started)(
        "finished", finished)("result", result)("errors", errors);
    if (result) json_spirit::extract (*result)("size", size)("set_size", set_size)("storage_size", storage_size);
    if (errors && !errors->empty() && errors->front().type() == json_spirit::str_type)
      error = errors->front().get_str();
  }

  bool ended() const { return finished != 0; }
};

std::vector<Job> jobs_of_the_day() {
  Array tasks;
  Task_Manager::instance()->list(tasks, most_tasks);
  std::vector<Job> jobs;
  for (const Value& task : tasks) {
    Job job(task.get_obj());
    if (!job.ended() || job.finished > now_milliseconds() - day) jobs.push_back(std::move(job));
  }
  return jobs;
}

std::string cell(const char* name, const std::string& html) {
  return std::string("<td data-name=\"") + name + "\">" + html + "</td>";
}

std::string state_cell(const std::string& state) {
  const std::string text = html_text(state);
  return "<td data-name=\"State\" class=\"" + text + "\">" + text + "</td>";
}

std::string progress_of(const Job& job) {
  Job_Progress progress;
  if (job.state != "running" || !ask_progress(job.id, progress) || progress.total == 0) return "";
  const std::string done = std::to_string(std::min(progress.processed, progress.total));
  return "<progress max=\"" + std::to_string(progress.total) + "\" value=\"" + done + "\"></progress> " +
         html_bytes(progress.processed) + " of " + html_bytes(progress.total) + ", " + html_bytes(progress.speed) +
         "/s";
}

std::string open_jobs(const std::vector<Job>& jobs) {
  std::string rows;
  for (const Job& job : jobs) {
    if (job.ended()) continue;
    rows += "<tr>" + cell("Job", html_text(job.kind)) + state_cell(job.state) +
            cell("Since", html_time(job.started ? job.started : job.created)) + cell("Progress", progress_of(job)) +
            "</tr>\n";
  }
  if (rows.empty()) return "<p>No job runs or waits.</p>\n";
  return "<table><thead><tr><th>Job<th>State<th>Since<th>Progress</thead><tbody>\n" + rows + "</tbody></table>\n";
}

std::string ended_jobs(const std::vector<Job>& jobs) {
  std::string rows;
  for (const Job& job : jobs) {
    if (!job.ended()) continue;
    const int64_t begin = job.started ? job.started : job.created;
    rows += "<tr>" + cell("Job", html_text(job.kind)) + state_cell(job.state) + cell("Ended", html_time(job.finished)) +
            cell("Took", html_duration(job.finished - begin)) + cell("Data", html_bytes(job.size)) +
            cell("In the pool", html_bytes(job.storage_size)) + cell("Error", html_text(job.error)) + "</tr>\n";
  }
  if (rows.empty()) return "<p>No job has ended within the last 24 hours.</p>\n";
  return "<table><thead><tr><th>Job<th>State<th>Ended<th>Took<th>Data<th>In the pool<th>Error</thead><tbody>\n" + rows +
         "</tbody></table>\n";
}

std::string summary(const std::vector<Job>& jobs) {
  const auto backups = std::count_if(jobs.begin(), jobs.end(),
                                     [](const Job& job) { return job.kind == "backup" && job.state == "completed"; });
  const auto failed = std::count_if(jobs.begin(), jobs.end(), [](const Job& job) { return job.state == "failed"; });
  return "<p>Backup jobs that stored their sets within the last 24 hours: <b>" + std::to_string(backups) +
         "</b>. Failed jobs: <b>" + std::to_string(failed) + "</b>.</p>\n";
}

std::string check_rows(const std::vector<Self_Checks::Result>& checks) {
  std::string rows;
  for (const Self_Checks::Result& check : checks) {
    rows += "<tr>" + cell("Check", html_text(check.name)) + "<td data-name=\"Result\" class=\"" +
            (check.ok ? "ok\">ok" : "bad\">" + html_text(check.reason)) + "</td></tr>\n";
  }
  return "<table><thead><tr><th>Check<th>Result</thead><tbody>\n" + rows + "</tbody></table>\n";
}

// Of the agent's pod, from the downward API; a host's name elsewhere says as much as the address that was asked.
std::string node_name() {
  const char* const name = std::getenv("NODE_NAME");
  return name && *name ? std::string(" on ") + html_text(name) : "";
}

}  // namespace

HTTP_Content status_page(const std::vector<Self_Checks::Result>& checks) {
  const std::vector<Job> jobs = jobs_of_the_day();
  HTTP_Content content;
  content.type = "text/html; charset=utf-8";
  content.fields = {{"Content-Security-Policy",
                     "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; "
                     "form-action 'none'; frame-ancestors 'none'"},
                    {"Referrer-Policy", "no-referrer"}};
  content.body =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head><meta charset=\"utf-8\"><title>Tessarin agent" + node_name() +
      "</title>\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<meta http-equiv=\"refresh\" content=\"10\">\n<style>" +
      style + "</style></head>\n<body>\n<h1>Tessarin agent" + node_name() + "</h1>\n<p>Version " TESSARIN_VERSION ", " +
      html_time(now_milliseconds()) + "</p>\n" + "<h2>Now</h2>\n" + open_jobs(jobs) + "<h2>Last day</h2>\n" +
      summary(jobs) + ended_jobs(jobs) + "<h2>Self-checks</h2>\n" + check_rows(checks) + "</body>\n</html>\n";
  return content;
}
