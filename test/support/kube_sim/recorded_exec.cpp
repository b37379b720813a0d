#include "support/kube_sim/recorded_exec.h"

#include <stdexcept>

#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "json_spirit/json_spirit_value.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::extract;
using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr int opcode_text = 1, opcode_close = 8, opcode_ping = 9;
constexpr std::chrono::seconds input_patience{10};

std::string unhex(const std::string& digits) {
  std::string bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

std::string payload_of(const Object& frame) {
  if (const Value* json = json_spirit::object_get_value(frame, "json"))
    return json_spirit::JSON_Dump(*json, false).str();
  std::string text, hex;
  extract(frame)("text", text)("hex", hex);
  return hex.empty() ? text : unhex(hex);
}

void play(Exec_Stream& stream, const Object& frame) {
  int opcode = 0, channel = 0, code = 1000;
  std::string digit, reason;
  extract(frame)("opcode", opcode)("channel", channel)("close_code", code)("reason", reason)("channel_char", digit);
  if (opcode == opcode_close)
    stream.close(static_cast<unsigned short>(code), reason);
  else if (opcode == opcode_ping)
    stream.ping();
  else
    stream.send_raw((digit.empty() ? std::string(1, static_cast<char>(channel)) : digit) + payload_of(frame),
                    opcode == opcode_text);
}

class Recorded_Exec : public Exec {
 public:
  explicit Recorded_Exec(Object exchange) : exchange_(std::move(exchange)) {}

  void run(Exec_Stream& stream) override {
    const Array* frames = json_spirit::object_get_array(exchange_, "frames");
    for (size_t i = 0; frames != nullptr && i < frames->size() && stream.open(); ++i) {
      await_input(stream, i);
      play(stream, (*frames)[i].get_obj());
    }
  }

 private:
  /// Waits for what the client had sent when so many frames had reached it.
  void await_input(Exec_Stream& stream, size_t frames) const {
    const Array* sent = json_spirit::object_get_array(exchange_, "sent");
    std::string ignored;
    for (size_t i = 0; sent != nullptr && i < sent->size(); ++i) {
      size_t after = 0;
      extract((*sent)[i].get_obj())("after_frames_received", after);
      if (after == frames) stream.receive(ignored, input_patience);
    }
  }

  const Object exchange_;
};

Answer recorded_answer(const Object& response, int status) {
  Answer answer;
  answer.status = status;
  answer.content_type.clear();
  const Object* headers = json_spirit::object_get_object(response, "headers");
  if (headers != nullptr) extract (*headers)("content-type", answer.content_type);
  if (const Value* body = json_spirit::object_get_value(response, "body"))
    answer.body = json_spirit::JSON_Dump(*body, false).str() + "\n";
  else
    extract(response)("body_text", answer.body);
  return answer;
}

const Object& find(const Value& recording, const std::string& name) {
  for (const Value& exchange : recording.get_array()) {
    std::string text;
    extract(exchange.get_obj())("name", text);
    if (text == name) return exchange.get_obj();
  }
  throw std::runtime_error("nothing is recorded as '" + name + "'");
}

}  // namespace

std::unique_ptr<Exec> recorded_exec(const std::string& file, const std::string& name, Answer& refusal) {
  Value recording;
  if (!json_spirit::load_json(file.c_str(), recording, json_spirit::LOAD_STRICT))
    throw std::runtime_error("can't read " + file);
  const Object& exchange = find(recording, name);
  const Object& response = json_spirit::object_get_object_or_throw(exchange, "response");
  int status = 0;
  extract(response)("status", status);
  if (status == 101) return std::make_unique<Recorded_Exec>(exchange);
  refusal = recorded_answer(response, status);
  return nullptr;
}

}  // namespace kube_sim
