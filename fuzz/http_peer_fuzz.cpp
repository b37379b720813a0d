// A peer of the channel's HTTP server: whatever it sends, it gets well-formed answers of known statuses, and the
// service sees no more requests than are answered. The first byte tells in which pieces the rest comes.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "ace/Log_Msg.h"
#include "channel_peer.h"

namespace {

/// Answers at once, with a body as long as that of the request.
class Service : public HTTP_Service {
 public:
  std::shared_ptr<void> post(std::string body, std::shared_ptr<HTTP_Exchange> exchange) override {
    ++posts;
    if (body.size() > max_body) std::abort();
    exchange->reply(body.empty() ? 204 : 200, std::string(body.size(), 'x'));
    return nullptr;
  }
  std::shared_ptr<WebSocket_Receiver> upgraded(std::shared_ptr<WebSocket_Sender>) override { return nullptr; }

  static constexpr size_t max_body = 2000;
  int posts = 0;
};

/// Takes one answer off @a text. @return its status.
int take_answer(std::string_view& text) {
  constexpr std::string_view begin = "HTTP/1.1 ", length = "Content-Length: ";
  if (!text.starts_with(begin)) std::abort();
  const int status = std::atoi(std::string(text.substr(begin.size(), 3)).c_str());
  const size_t end = text.find("\r\n\r\n");
  if (end == std::string_view::npos) std::abort();
  const size_t at = text.substr(0, end).find(length);
  size_t body = at == std::string_view::npos ? 0 : std::stoul(std::string(text.substr(at + length.size(), 10)));
  const std::string_view rest = text.substr(end + 4);
  if (rest.empty() || rest.starts_with(begin)) body = 0;  // that of a HEAD
  if (text.size() < end + 4 + body) std::abort();
  text.remove_prefix(end + 4 + body);
  return status;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool quiet = (ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS), true);
  if (size == 0 || size > 60'000 || !quiet) return 0;
  HTTP_Server_Options options;
  options.path = "/d2/jr";
  options.limits.head_bytes = 1024;
  options.limits.body_bytes = Service::max_body;
  Service service;
  const std::string heard =
      said_to("", std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1), data[0], service, options);

  constexpr std::array known = {100, 101, 200, 204, 400, 401, 404, 405, 413, 417, 426, 431, 504};
  int served = 0;
  for (std::string_view text = heard; !text.empty();) {
    const int status = take_answer(text);
    if (std::find(known.begin(), known.end(), status) == known.end()) std::abort();
    if (status == 101) break;  // frames follow
    served += status == 200 || status == 204;
  }
  if (served != service.posts) std::abort();
  return 0;
}
