#include "support/fault_proxy.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace test_support {

namespace {

// What is closed then is reset.
void reset_at_close(int fd) {
  const linger now{1, 0};
  setsockopt(fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

bool is_gone(int fd) {
  char byte;
  return recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

std::string made_answer(const char* status, bool wait) {
  return std::string("HTTP/1.1 ") + status + "\r\n" + (wait ? "Retry-After: 1\r\n" : "") +
         "Content-Length: 0\r\nConnection: close\r\n\r\n";
}

// An answer without a length ends with its connection.
bool keeps_connection(const std::string& answer) {
  std::string head = answer.substr(0, answer.find("\r\n\r\n"));
  std::transform(head.begin(), head.end(), head.begin(), [](unsigned char c) { return tolower(c); });
  return head.find("\r\ncontent-length:") != head.npos && head.find("\r\nconnection: close") == head.npos;
}

std::string with_longer_length(std::string answer) {
  const size_t at = answer.find("ontent-Length: ");
  const size_t digits = answer.find(' ', at == answer.npos ? 0 : at) + 1;
  if (at != answer.npos) answer.insert(digits, "9");
  return answer;
}

}  // namespace

Fault_Proxy::Fault_Proxy(int upstream_port, Plan plan)
    : upstream_port_(upstream_port), plan_(std::move(plan)), server_([this](int fd) { serve(fd); }) {}

void Fault_Proxy::serve(int fd) {
  while (serve_one(fd)) {
  }
}

// False where the connection ends with the request.
bool Fault_Proxy::serve_one(int fd) {
  std::string ahead;
  Wire_Message request;
  char first[256];
  const ssize_t begun = recv(fd, first, sizeof first, MSG_PEEK);
  if (begun <= 0) return false;
  ++requests_;
  const std::string line(first, static_cast<size_t>(begun));
  const Network_Fault fault = plan_(line.substr(0, line.find("\r\n")));
  if (fault == Network_Fault::RESET_IN_REQUEST) {
    char some[16384];
    static_cast<void>(recv(fd, some, sizeof some, 0));
    reset_at_close(fd);
    return false;
  }
  if (!read_message(fd, ahead, request)) return false;
  switch (fault) {
    case Network_Fault::ANSWER_500:
      write_all(fd, made_answer("500 Internal Server Error", false));
      break;
    case Network_Fault::ANSWER_503:
      write_all(fd, made_answer("503 Slow Down", true));
      break;
    case Network_Fault::ANSWER_429:
      write_all(fd, made_answer("429 Too Many Requests", true));
      break;
    case Network_Fault::SILENCE:
      while (!ended_ && !is_gone(fd)) std::this_thread::sleep_for(std::chrono::milliseconds(20));
      break;
    default: {
      const std::string whole = forward(request);
      answer(fd, fault, whole);
      return fault == Network_Fault::NONE && keeps_connection(whole);
    }
  }
  return false;
}

std::string Fault_Proxy::forward(const Wire_Message& request) const {
  std::string head = request.head;
  head.insert(head.size() - 2, "Connection: close\r\n");
  std::string answer;
  const int fd = connect_to_port(upstream_port_);
  if (fd >= 0 && write_all(fd, head) && write_all(fd, request.body)) {
    char bytes[65536];
    for (ssize_t got; (got = recv(fd, bytes, sizeof bytes, 0)) > 0;) answer.append(bytes, static_cast<size_t>(got));
  }
  if (fd >= 0) close(fd);
  return answer;
}

void Fault_Proxy::answer(int fd, Network_Fault fault, const std::string& answer) const {
  const std::string_view half = std::string_view(answer).substr(0, answer.size() / 2);
  switch (fault) {
    case Network_Fault::LOSE_ANSWER:
      reset_at_close(fd);
      break;
    case Network_Fault::RESET_IN_ANSWER:
      write_all(fd, half);
      reset_at_close(fd);
      break;
    case Network_Fault::CUT_ANSWER:
      write_all(fd, half);
      break;
    case Network_Fault::CUT_HEAD:
      write_all(fd, answer.substr(0, answer.find("\r\n") + 6));
      break;
    case Network_Fault::WRONG_LENGTH:
      write_all(fd, with_longer_length(answer));
      break;
    case Network_Fault::SLOW: {
      const size_t body = answer.find("\r\n\r\n") + 4;
      write_all(fd, answer.substr(0, body));
      for (const char byte : answer.substr(body)) {
        if (ended_ || !write_all(fd, {&byte, 1})) return;
        std::this_thread::sleep_for(std::chrono::seconds(1));
      }
      break;
    }
    default:
      write_all(fd, answer);
  }
}

}  // namespace test_support
