#include "support/kube_sim/scripted_exec.h"

#include <algorithm>

#include "support/kube_sim/exec_status.h"

namespace kube_sim {

namespace {

void send_in_frames(Exec_Stream& stream, unsigned char channel, std::string_view text, size_t frame_size) {
  for (; !text.empty(); text.remove_prefix(std::min(frame_size, text.size())))
    if (!stream.send(channel, text.substr(0, frame_size))) return;
}

}  // namespace

bool pause(Exec_Stream& stream, std::chrono::milliseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  std::string ignored;
  while (stream.open()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return true;
    stream.receive(ignored, left);
  }
  return false;
}

Exec_Script& Exec_Script::step(Step step) {
  steps_.push_back(std::move(step));
  return *this;
}

Exec_Script& Exec_Script::without_first_frame() {
  first_frame_ = false;
  return *this;
}

Exec_Script& Exec_Script::output(std::string text, size_t frame_size) {
  return step([text, frame_size](Exec_Stream& stream, auto&) { send_in_frames(stream, 1, text, frame_size); });
}

Exec_Script& Exec_Script::error_output(std::string text, size_t frame_size) {
  return step([text, frame_size](Exec_Stream& stream, auto&) { send_in_frames(stream, 2, text, frame_size); });
}

Exec_Script& Exec_Script::frame(unsigned char channel, std::string payload) {
  return step([channel, payload](Exec_Stream& stream, auto&) { stream.send(channel, payload); });
}

Exec_Script& Exec_Script::raw_frame(std::string payload, bool text) {
  return step([payload, text](Exec_Stream& stream, auto&) { stream.send_raw(payload, text); });
}

Exec_Script& Exec_Script::exit(int code) {
  return step(
      [code](Exec_Stream& stream, const std::vector<std::string>& command) { send_exit(stream, code, command); });
}

Exec_Script& Exec_Script::pause(std::chrono::milliseconds time) {
  return step([time](Exec_Stream& stream, auto&) { kube_sim::pause(stream, time); });
}

Exec_Script& Exec_Script::ping() {
  return step([](Exec_Stream& stream, auto&) { stream.ping(); });
}

Exec_Script& Exec_Script::await_input() {
  return step([](Exec_Stream& stream, auto&) {
    std::string ignored;
    while (stream.open() && !stream.receive(ignored, std::chrono::milliseconds(100))) continue;
  });
}

Exec_Script& Exec_Script::hang() {
  return pause(std::chrono::hours(24));
}

Exec_Script& Exec_Script::close(unsigned short code, std::string reason) {
  return step([code, reason](Exec_Stream& stream, auto&) { stream.close(code, reason); });
}

Exec_Script& Exec_Script::drop() {
  return step([](Exec_Stream& stream, auto&) { stream.drop(); });
}

Scripted_Exec::Scripted_Exec(Exec_Script script, std::vector<std::string> command)
    : script_(std::move(script)), command_(std::move(command)) {}

void Scripted_Exec::run(Exec_Stream& stream) {
  if (script_.first_frame_) stream.send(1, "");
  for (const Exec_Script::Step& step : script_.steps_) {
    if (!stream.open()) return;
    step(stream, command_);
  }
}

}  // namespace kube_sim
