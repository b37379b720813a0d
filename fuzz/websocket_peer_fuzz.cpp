// A peer of the channel after its upgrade: whatever frames it sends, it gets well-formed frames back, no message is
// longer than the limit, and what is sent back was sent. The first byte tells in which pieces the rest comes.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "ace/Log_Msg.h"
#include "channel_peer.h"

namespace {

constexpr size_t max_message = 1000;

class Echo : public WebSocket_Receiver {
 public:
  Echo(std::shared_ptr<WebSocket_Sender> sender, int& messages) : sender_(std::move(sender)), messages_(messages) {}
  void message(std::string text) override {
    ++messages_;
    if (text.size() > max_message) std::abort();
    sender_->send(std::string(text.size(), 'x'));
  }

 private:
  const std::shared_ptr<WebSocket_Sender> sender_;
  int& messages_;
};

class Service : public HTTP_Service {
 public:
  std::shared_ptr<void> post(std::string, std::shared_ptr<HTTP_Exchange>) override { std::abort(); }
  std::shared_ptr<WebSocket_Receiver> upgraded(std::shared_ptr<WebSocket_Sender> sender) override {
    return std::make_shared<Echo>(std::move(sender), messages);
  }
  int messages = 0;
};

/// Takes one frame of a server off @a text: whole, without a mask and reserved bits. @return its opcode.
int take_frame(std::string_view& text) {
  const auto byte = [&text](size_t at) { return static_cast<unsigned char>(text[at]); };
  if (text.size() < 2 || (byte(0) & 0x70) != 0 || byte(1) > 126) std::abort();
  size_t head = 2, length = byte(1);
  if (length == 126) {
    if (text.size() < 4) std::abort();
    head = 4;
    length = static_cast<size_t>(byte(2)) << 8 | byte(3);
  }
  const int opcode = byte(0) & 0x0f;
  if (text.size() < head + length || length > max_message) std::abort();
  if (opcode >= 8 && (length > 125 || byte(0) < 0x80)) std::abort();
  text.remove_prefix(head + length);
  return opcode;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool quiet = (ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS), true);
  if (size == 0 || size > 60'000 || !quiet) return 0;
  HTTP_Server_Options options;
  options.path = "/d2/jr";
  options.limits.message_bytes = max_message;
  options.limits.message_overhead_bytes = 2000;
  Service service;
  const std::string request =
      "GET /d2/jr HTTP/1.1\r\nHost: x\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
      "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
  const std::string_view frames(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::string heard = said_to(request, frames, data[0], service, options);
  const size_t end = heard.find("\r\n\r\n");
  if (!heard.starts_with("HTTP/1.1 101 ") || end == std::string::npos) std::abort();

  int sent_back = 0, closes = 0;
  for (std::string_view text = std::string_view(heard).substr(end + 4); !text.empty();) {
    if (closes > 0) std::abort();  // nothing comes behind a close
    const int opcode = take_frame(text);
    if (opcode == 1)
      ++sent_back;
    else if (opcode == 8)
      ++closes;
    else if (opcode != 9 && opcode != 10)
      std::abort();
  }
  if (sent_back > service.messages) std::abort();
  return 0;
}
