#include "support/kube_sim/scripted_api.h"

#include "support/kube_sim/status_document.h"

namespace kube_sim {

Scripted_Api& Scripted_Api::expect(std::string method, std::string target, Answer answer) {
  const std::lock_guard<std::mutex> guard(lock_);
  steps_.push_back({Kind::ANSWER, std::move(method), std::move(target), std::move(answer), {}, {}});
  return *this;
}

Scripted_Api& Scripted_Api::expect_watch(std::string target, std::vector<std::string> lines) {
  const std::lock_guard<std::mutex> guard(lock_);
  steps_.push_back({Kind::WATCH, "GET", std::move(target), {}, std::move(lines), {}});
  return *this;
}

Scripted_Api& Scripted_Api::expect_exec(std::string target, std::function<std::unique_ptr<Exec>()> make) {
  const std::lock_guard<std::mutex> guard(lock_);
  steps_.push_back({Kind::EXEC, "GET", std::move(target), {}, {}, std::move(make)});
  return *this;
}

std::string Scripted_Api::verify() const {
  const std::lock_guard<std::mutex> guard(lock_);
  std::string text;
  for (const std::string& problem : problems_) text += problem + "\n";
  for (const Step& step : steps_) text += "did not come: " + step.method + " " + step.target + "\n";
  return text;
}

bool Scripted_Api::take(Kind kind, const Request& request, Step& step) {
  const std::lock_guard<std::mutex> guard(lock_);
  if (steps_.empty() || steps_.front().kind != kind) return false;
  if (steps_.front().method != request.method || steps_.front().target != request.target) return false;
  step = std::move(steps_.front());
  steps_.pop_front();
  return true;
}

Answer Scripted_Api::unexpected(const Request& request) {
  const std::lock_guard<std::mutex> guard(lock_);
  const std::string next = steps_.empty() ? "nothing" : steps_.front().method + " " + steps_.front().target;
  problems_.push_back("came: " + request.method + " " + request.target + ", expected: " + next);
  return failure(500, "InternalError", "not expected by the test");
}

Answer Scripted_Api::answer(const Request& request) {
  Step step;
  return take(Kind::ANSWER, request, step) ? step.answer : unexpected(request);
}

bool Scripted_Api::watch(const Request& request, Watch_Sink& sink) {
  Step step;
  if (!take(Kind::WATCH, request, step)) return false;
  bool good = sink.start();
  for (const std::string& line : step.lines) good = good && sink.send(line + "\n");
  return true;
}

std::unique_ptr<Exec> Scripted_Api::exec(const Request& request, Answer& refusal) {
  Step step;
  if (take(Kind::EXEC, request, step)) return step.make_exec();
  // An upgrade that is to be refused is expected as an ordinary request.
  refusal = answer(request);
  return nullptr;
}

Answer json_answer(int status, std::string body) {
  Answer answer;
  answer.status = status;
  answer.body = std::move(body);
  return answer;
}

}  // namespace kube_sim
