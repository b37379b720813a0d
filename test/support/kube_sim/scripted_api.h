#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/kube_sim/api.h"

namespace kube_sim {

/**
 * An API that expects certain requests in a certain order, each with its answer.
 *
 * A request that is not the next expected one is answered 500 and told by `verify`. Threads: any.
 */
class Scripted_Api : public Api {
 public:
  /// @a target is compared with the request's target as sent.
  Scripted_Api& expect(std::string method, std::string target, Answer answer);
  /// The next request is a watch that is sent @a lines one by one and then ends.
  Scripted_Api& expect_watch(std::string target, std::vector<std::string> lines);
  /// The next request is an upgrade, served by what @a make returns.
  Scripted_Api& expect_exec(std::string target, std::function<std::unique_ptr<Exec>()> make);

  /// One line for each request that was not expected and each expected one that did not come. Empty when all went well:
  /// a test ends with EXPECT_EQ(api.verify(), "").
  std::string verify() const;

  Answer answer(const Request& request) override;
  bool watch(const Request& request, Watch_Sink& sink) override;
  std::unique_ptr<Exec> exec(const Request& request, Answer& refusal) override;

 private:
  enum class Kind { ANSWER, WATCH, EXEC };
  struct Step {
    Kind kind;
    std::string method;
    std::string target;
    Answer answer;
    std::vector<std::string> lines;
    std::function<std::unique_ptr<Exec>()> make_exec;
  };

  /// Moves the next step out if it is this one.
  bool take(Kind kind, const Request& request, Step& step);
  Answer unexpected(const Request& request);

  mutable std::mutex lock_;
  std::deque<Step> steps_;             // guarded by lock_
  std::vector<std::string> problems_;  // guarded by lock_
};

/// An answer with a JSON body.
Answer json_answer(int status, std::string body);

}  // namespace kube_sim
