#include "websvcs/agent_pages.h"

#include <chrono>

#include "kolt/metrics.h"
#include "task/task_manager.h"
#include "websvcs/node_checks.h"
#include "websvcs/process_metrics.h"
#include "websvcs/status_page.h"

namespace {

constexpr std::chrono::seconds node_interval(60);
constexpr std::chrono::seconds life_interval(10);
/// A task manager that has not answered for so long never will: its locks are held for moments, but for a disk that
/// hangs.
constexpr std::chrono::seconds longest_silence(120);

// The look at an unknown task takes the manager's lock and asks its store.
std::string ask_task_manager() {
  json_spirit::Object none;
  Task_Manager::instance()->get("", none);
  return "";
}

std::string in_detail(const Self_Checks::Result& check) {
  return check.name + ": " + (check.ok ? "ok" : check.reason) + "\n";
}

}  // namespace

Agent_Pages::Agent_Pages(const Agent_Options& options, const std::string& state_dir)
    : node_(node_checks({options.kubelet_dir, "/var/cache/velmora/tessarin", state_dir, options.check_pool}),
            node_interval),
      life_({{"task_manager", ask_task_manager}}, life_interval) {
  kolt::Gauge("tessarin_build_info", "Always 1; the label tells the version.", {{"version", TESSARIN_VERSION}}).set(1);
}

int Agent_Pages::start() {
  return node_.start() == -1 || life_.start() == -1 ? -1 : 0;
}

void Agent_Pages::add_to(HTTP_Server& server) {
  server.add_page("/healthz", {HTTP_Page::ACCESS_OPEN, [this](const auto& caller) { return health(caller); }});
  server.add_page("/readyz", {HTTP_Page::ACCESS_OPEN, [this](const auto& caller) { return readiness(caller); }});
  server.add_page("/metrics", {HTTP_Page::ACCESS_TRUSTED, [this](const auto&) { return metrics(); }});
  server.add_page("/", {HTTP_Page::ACCESS_TRUSTED, [this](const auto&) { return status_page(node_.results()); }});
}

// That this is answered shows that the channel's threads respond.
HTTP_Content Agent_Pages::health(const HTTP_Page::Caller& caller) const {
  const auto silence = std::chrono::duration_cast<std::chrono::seconds>(life_.age());
  HTTP_Content content;
  const bool ok = silence < longest_silence;
  content.status = ok ? 200 : 503;
  content.body = ok ? "ok\n" : "not ok\ntask_manager\n";
  if (caller.trusted) content.body += "task manager answered " + std::to_string(silence.count()) + " seconds ago\n";
  return content;
}

HTTP_Content Agent_Pages::readiness(const HTTP_Page::Caller& caller) const {
  HTTP_Content content;
  std::string lines;
  for (const Self_Checks::Result& check : node_.results()) {
    if (!check.ok) content.status = 503;
    if (caller.trusted)
      lines += in_detail(check);
    else if (!check.ok)
      lines += check.name + "\n";
  }
  content.body = (content.status == 200 ? "ok\n" : "not ready\n") + lines;
  return content;
}

HTTP_Content Agent_Pages::metrics() {
  const std::lock_guard guard(scrape_);
  update_process_metrics();
  return {200, "text/plain; version=0.0.4; charset=utf-8", kolt::metrics_text()};
}
