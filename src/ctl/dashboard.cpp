#include "ctl/dashboard.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>

#include "ctl/agent.h"
#include "ctl/interrupt.h"
#include "http/http_server.h"
#include "kolt/rand_char.h"

namespace ctl {

namespace {

constexpr size_t secret_length = 43;
constexpr std::chrono::milliseconds until_next_look(500);

std::string random_secret() {
  std::string secret(secret_length, '\0');
  std::generate(secret.begin(), secret.end(), [] { return kolt::rand_char(kolt::RCS_ALNUM); });
  return secret;
}

/// There is nothing but the page.
class No_Service : public HTTP_Service {
 public:
  std::shared_ptr<void> post(std::string, std::shared_ptr<HTTP_Exchange> exchange) override {
    exchange->reply(404, "");
    return nullptr;
  }
  std::shared_ptr<WebSocket_Receiver> upgraded(std::shared_ptr<WebSocket_Sender>) override { return nullptr; }
};

/// The agent's page, fetched for each reader.
class Forwarded_Page {
 public:
  explicit Forwarded_Page(const Options& options) : agent_(options.agent, trust_of(options)) {}

  /// @throws Failure.
  void check() {
    const Agent::Page page = agent_.get("/");
    if (page.status == 401 || page.status == 403)
      throw Failure(exit_refused, "The agent wants a token: give its file with --token-file.");
    if (page.status != 200)
      throw Failure(exit_refused, "The agent has no status page (HTTP " + std::to_string(page.status) + ").");
  }

  HTTP_Content content() {
    const std::lock_guard guard(lock_);
    try {
      const Agent::Page page = agent_.get("/");
      return {static_cast<unsigned>(page.status),
              page.type,
              page.body,
              {{"Content-Security-Policy", "default-src 'none'; style-src 'unsafe-inline'"},
               {"Referrer-Policy", "no-referrer"}}};
    } catch (const Failure& failure) {
      return {502, "text/plain; charset=utf-8", std::string(failure.what()) + "\n", {{"Refresh", "10"}}};
    }
  }

 private:
  std::mutex lock_;
  Agent agent_;  // guarded by lock_
};

}  // namespace

Exit_Code run_dashboard(const Options& options, std::ostream& out) {
  const Interrupt interrupt;
  Forwarded_Page page(options);
  page.check();

  const std::string path = "/" + random_secret() + "/";
  HTTP_Server_Options server_options;
  server_options.path = path + "none";
  No_Service service;
  HTTP_Server server(service, server_options);
  server.add_page(path, {HTTP_Page::ACCESS_OPEN, [&page](const HTTP_Page::Caller&) { return page.content(); }});
  if (server.listen_tcp("127.0.0.1", options.port, random_secret()) == -1)
    throw Failure(exit_usage,
                  "Port " + std::to_string(options.port) + " cannot be used: " + std::strerror(errno) + ".");
  if (server.start() == -1) throw Failure(exit_usage, "The page cannot be served.");
  out << "http://127.0.0.1:" << server.port() << path << std::endl;
  while (interrupt.count() == 0) interrupt.sleep(until_next_look);
  return exit_ok;
}

}  // namespace ctl
