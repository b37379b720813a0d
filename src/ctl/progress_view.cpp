#include "ctl/progress_view.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "ctl/human.h"

namespace ctl {

namespace {

/// How often a line is printed where there is no terminal.
constexpr std::chrono::seconds line_interval(5);
constexpr size_t widest_bar = 40;
constexpr size_t narrowest_bar = 10;
constexpr char clear_line[] = "\r\033[K";

uint64_t percent(const Progress& progress) {
  if (progress.processed >= progress.total) return 100;
  return static_cast<uint64_t>(static_cast<double>(progress.processed) * 100 / static_cast<double>(progress.total));
}

}  // namespace

Terminal_Size terminal_size() {
  winsize size{};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0;
  return known ? Terminal_Size{size.ws_col, size.ws_row} : Terminal_Size{80, 24};
}

std::string progress_text(const Progress& progress) {
  if (progress.total == 0) return progress.state;
  std::string text =
      std::to_string(percent(progress)) + "%  " + human_size(progress.processed) + " of " + human_size(progress.total);
  if (progress.speed == 0) return text;
  text += "  " + human_size(progress.speed) + "/s";
  const uint64_t left = progress.total - std::min(progress.total, progress.processed);
  return text + "  " + human_duration((left + progress.speed - 1) / progress.speed) + " left";
}

std::string progress_bar(const Progress& progress, size_t columns) {
  std::string text = progress_text(progress);
  constexpr size_t frame = 3;  // brackets and a blank
  if (progress.total == 0 || columns < text.size() + frame + narrowest_bar) return text.substr(0, columns);
  const size_t room = std::min(widest_bar, columns - text.size() - frame);
  const size_t done = room * percent(progress) / 100;
  return '[' + std::string(done, '#') + std::string(room - done, '-') + "] " + text;
}

Progress_View::Mode Progress_View::mode_for_stderr() {
  return isatty(STDERR_FILENO) == 1 ? bar : lines;
}

Progress_View::~Progress_View() {
  clear();
}

void Progress_View::show(const Progress& progress) {
  if (mode_ == bar) {
    // The last column stays free: some terminals begin a new line behind it.
    out_ << clear_line << progress_bar(progress, terminal_size().columns - 1) << std::flush;
    drawn_ = true;
    return;
  }
  const auto now = std::chrono::steady_clock::now();
  if (mode_ == silent || (progress.state == shown_state_ && now - shown_at_ < line_interval)) return;
  out_ << (progress.total == 0 ? progress.state : progress.state + "  " + progress_text(progress)) << std::endl;
  shown_state_ = progress.state;
  shown_at_ = now;
}

void Progress_View::say(const std::string& text) {
  if (mode_ == silent) return;
  clear();
  out_ << text << std::endl;
}

void Progress_View::clear() {
  if (drawn_) out_ << clear_line << std::flush;
  drawn_ = false;
}

}  // namespace ctl
