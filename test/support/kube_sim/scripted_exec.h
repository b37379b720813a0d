#pragma once

#include <functional>
#include <vector>

#include "support/kube_sim/api.h"

namespace kube_sim {

/**
 * What a command sends, step by step, written in a chain: `Exec_Script().output("1\n").exit(3)`.
 *
 * As on a real server the first frame is an empty one on channel 1. A script that ends without a step that ends the
 * connection is closed with 1000; one without a step for the status sends none.
 */
class Exec_Script {
 public:
  static constexpr size_t largest_frame = 32768;

  Exec_Script& without_first_frame();
  /// Standard output, cut into frames of at most @a frame_size bytes.
  Exec_Script& output(std::string text, size_t frame_size = largest_frame);
  Exec_Script& error_output(std::string text, size_t frame_size = largest_frame);
  /// One frame.
  Exec_Script& frame(unsigned char channel, std::string payload);
  /// One frame whose payload has no channel byte of ours.
  Exec_Script& raw_frame(std::string payload, bool text = false);
  /// The status frame of a command that ended with @a code; 0 is a success.
  Exec_Script& exit(int code);
  Exec_Script& pause(std::chrono::milliseconds time);
  Exec_Script& ping();
  /// Waits for a frame of the client.
  Exec_Script& await_input();
  /// Goes on sending nothing until the client goes away.
  Exec_Script& hang();
  Exec_Script& close(unsigned short code, std::string reason = "");
  /// Ends the connection without a close frame.
  Exec_Script& drop();

 private:
  friend class Scripted_Exec;
  typedef std::function<void(Exec_Stream&, const std::vector<std::string>& command)> Step;

  Exec_Script& step(Step step);

  std::vector<Step> steps_;
  bool first_frame_ = true;
};

/// Plays a script, whatever the command is.
class Scripted_Exec : public Exec {
 public:
  explicit Scripted_Exec(Exec_Script script, std::vector<std::string> command = {});
  void run(Exec_Stream& stream) override;

 private:
  const Exec_Script script_;
  const std::vector<std::string> command_;
};

/// Sleeps up to @a time; false when the stream ended meanwhile.
bool pause(Exec_Stream& stream, std::chrono::milliseconds time);

}  // namespace kube_sim
