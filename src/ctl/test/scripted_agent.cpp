#include "ctl/test/scripted_agent.h"

#include <strings.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_helper.h"

namespace ctl_test {

using json_spirit::Object;
using json_spirit::Value;

namespace {

/// Appends what comes next; false at the end of the connection.
bool read_more(int connection, std::string& text) {
  char buffer[4096];
  const ssize_t got = read(connection, buffer, sizeof buffer);
  if (got <= 0) return false;
  text.append(buffer, static_cast<size_t>(got));
  return true;
}

size_t content_length(const std::string& head) {
  const char* const at = strcasestr(head.c_str(), "\r\ncontent-length:");
  return at != nullptr ? std::strtoul(at + std::strlen("\r\ncontent-length:"), nullptr, 10) : 0;
}

}  // namespace

Scripted_Agent::Scripted_Agent() : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, (dir_ / "socket").c_str(), sizeof address.sun_path - 1);
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(listener_, 8) != 0)
    std::abort();
  thread_ = std::thread([this] { serve(); });
}

Scripted_Agent::~Scripted_Agent() {
  shutdown(listener_, SHUT_RDWR);
  {
    std::lock_guard<std::mutex> guard(lock_);
    if (connection_ >= 0) shutdown(connection_, SHUT_RDWR);
  }
  thread_.join();
  close(listener_);
}

void Scripted_Agent::on(const std::string& method, Answer answer) {
  std::lock_guard<std::mutex> guard(lock_);
  answers_[method] = std::move(answer);
}

void Scripted_Agent::raw(const std::string& response) {
  std::lock_guard<std::mutex> guard(lock_);
  raw_ = response;
}

std::vector<Scripted_Agent::Call> Scripted_Agent::calls() const {
  std::lock_guard<std::mutex> guard(lock_);
  return calls_;
}

std::vector<Object> Scripted_Agent::calls_of(const std::string& method) const {
  std::vector<Object> found;
  for (const Call& call : calls())
    if (call.method == method) found.push_back(call.params);
  return found;
}

void Scripted_Agent::serve() {
  for (;;) {
    const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) return;
    {
      std::lock_guard<std::mutex> guard(lock_);
      connection_ = connection;
    }
    serve_connection(connection);
    std::lock_guard<std::mutex> guard(lock_);
    connection_ = -1;
    close(connection);
  }
}

void Scripted_Agent::serve_connection(int connection) {
  std::string text;
  for (;;) {
    size_t head_end;
    while ((head_end = text.find("\r\n\r\n")) == std::string::npos)
      if (!read_more(connection, text)) return;
    const std::string head = text.substr(0, head_end + 2);
    text.erase(0, head_end + 4);
    const size_t length = content_length(head);
    while (text.size() < length)
      if (!read_more(connection, text)) return;
    const std::string response = answer(head, text.substr(0, length));
    text.erase(0, length);
    if (send(connection, response.data(), response.size(), MSG_NOSIGNAL) < 0) return;
  }
}

std::string Scripted_Agent::answer(const std::string& head, const std::string& body) {
  Value request;
  if (!json_spirit::loads_json(body.c_str(), request)) std::abort();
  Object& object = request.get_obj();
  const Call call{object["method"].get_str(), object["params"].get_obj(), head};
  Answer answer;
  {
    std::lock_guard<std::mutex> guard(lock_);
    calls_.push_back(call);
    if (!raw_.empty()) return raw_;
    answer = answers_[call.method];
  }
  Object response;
  response["jsonrpc"] = "2.0";
  response["id"] = object["id"];
  try {
    if (!answer) throw Error{-32601, "Method not found."};
    response["result"] = answer(call.params);
  } catch (const Error& error) {
    Object told;
    told["code"] = error.code;
    told["message"] = error.message;
    response["error"] = told;
  }
  const std::string text = json_spirit::JSON_Dump(response, false).str();
  return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(text.size()) +
         "\r\n\r\n" + text;
}

}  // namespace ctl_test
