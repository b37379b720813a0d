#include "ctl/sets/run_view.h"

namespace ctl {

class Run_View::Handler : public MTF::Event_Handler {
 public:
  explicit Handler(Run_View& view) : Event_Handler(MTF::PRM_FILE_SIZE), view_(view) {}

  int handle_progress(int, ACE_UINT64 total, ACE_UINT64 processed, ACE_UINT64 speed) override {
    view_.progress(processed, total, speed);
    return 0;
  }
  bool canceling() override { return view_.interrupted(); }

 private:
  Run_View& view_;
};

Run_View::Run_View(std::ostream& out, std::ostream& err, bool json)
    : out_(out), json_(json), view_(err, json ? Progress_View::silent : Progress_View::mode_for_stderr()) {}

MTF::Event_Handler_var Run_View::handler() {
  return MTF::Event_Handler_var(new Handler(*this));
}

void Run_View::begin(const std::string& what) {
  std::lock_guard<std::mutex> guard(lock_);
  what_ = what;
}

void Run_View::progress(uint64_t processed, uint64_t total, uint64_t speed) {
  std::lock_guard<std::mutex> guard(lock_);
  view_.show({what_, processed, total, speed});
}

void Run_View::line(const std::string& text) {
  if (json_) return;
  std::lock_guard<std::mutex> guard(lock_);
  view_.clear();
  out_ << text << std::endl;
}

}  // namespace ctl
