#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

namespace ctl {

struct Terminal_Size {
  size_t columns;
  size_t rows;
};

/// Of the terminal at the standard error; 80 by 24 where there is none.
Terminal_Size terminal_size();

/// How far a job has got, as the agent tells it.
struct Progress {
  std::string state;
  uint64_t processed = 0;  ///< bytes
  uint64_t total = 0;      ///< bytes, 0: not known yet
  uint64_t speed = 0;      ///< bytes per second
};

/// "45%", "1.2 GiB of 2.6 GiB", "120.0 MiB/s" and "0:12 left", as far as they are known, joined by blanks.
std::string progress_text(const Progress& progress);

/// The text behind a bar, in at most @a columns: "[#####-----] 45%  ..."; without the bar where there is no room for
/// it.
std::string progress_bar(const Progress& progress, size_t columns);

/// Shows progress on a stream: a bar that is drawn again and again on a terminal, otherwise a line now and then.
class Progress_View {
 public:
  enum Mode { silent, lines, bar };

  /// The mode for the standard error: a bar if it is a terminal.
  static Mode mode_for_stderr();

  Progress_View(std::ostream& out, Mode mode) : out_(out), mode_(mode) {}
  /// Takes the bar away.
  ~Progress_View();
  Progress_View(const Progress_View&) = delete;
  Progress_View& operator=(const Progress_View&) = delete;

  void show(const Progress& progress);
  /// Prints a line of text beside the progress.
  void say(const std::string& text);

  /// Takes the bar away, for whoever prints beside it; the next show() brings it back.
  void clear();

 private:
  std::ostream& out_;
  const Mode mode_;
  std::string shown_state_;
  std::chrono::steady_clock::time_point shown_at_;
  bool drawn_ = false;
};

}  // namespace ctl
