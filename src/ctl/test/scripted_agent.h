#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "support/temp_dir.h"

namespace ctl_test {

/// A small HTTP server on a unix socket that answers JSON-RPC as the test tells it, and remembers what it was asked.
class Scripted_Agent {
 public:
  struct Error {
    int code;
    std::string message;
  };
  struct Call {
    std::string method;
    json_spirit::Object params;
    std::string head;  ///< request line and headers
  };
  /// Gives the result; throws Error for an error answer.
  typedef std::function<json_spirit::Value(const json_spirit::Object& params)> Answer;

  Scripted_Agent();
  ~Scripted_Agent();

  std::string url() const { return "unix://" + (dir_ / "socket"); }
  void on(const std::string& method, Answer answer);
  /// From now on every request gets this instead of a JSON-RPC answer.
  void raw(const std::string& response);

  std::vector<Call> calls() const;
  /// The params of the calls of one method.
  std::vector<json_spirit::Object> calls_of(const std::string& method) const;

 private:
  void serve();
  void serve_connection(int connection);
  std::string answer(const std::string& head, const std::string& body);

  test_support::Temp_Dir dir_;
  int listener_;

  mutable std::mutex lock_;
  std::map<std::string, Answer> answers_;  // guarded by lock_, as are the next three
  std::vector<Call> calls_;
  std::string raw_;
  int connection_ = -1;

  std::thread thread_;
};

}  // namespace ctl_test
