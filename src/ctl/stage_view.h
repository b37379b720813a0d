#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "ctl/progress_view.h"
#include "k8s/api/k8s_storage_class_capability_config.h"

namespace ctl {

/// How far the capability experiment has got with a class, in words for people. Empty: not begun.
struct Stage {
  std::string name;
  std::string claim;
  std::string clone;
  std::string snapshot;
  bool operator==(const Stage&) const = default;
};

/// @param cleaning  the temporary objects are being removed.
std::vector<Stage> stages_of(const Validation_Units& units, bool cleaning);

/// "gold: claim bound, clone pending"
std::string stage_line(const Stage& stage);

/// Shows the stages on a stream: a table that is drawn again in its place on a terminal, otherwise a line for each
/// change.
class Stage_View {
 public:
  /// @param size  of the terminal; a larger table is shown as lines.
  Stage_View(std::ostream& out, Progress_View::Mode mode, Terminal_Size size) : out_(out), mode_(mode), size_(size) {}
  /// Takes the table away.
  ~Stage_View();
  Stage_View(const Stage_View&) = delete;
  Stage_View& operator=(const Stage_View&) = delete;

  /// @param title  stands above the table; a line of its own when it changes.
  /// @param time   "0:12": behind the title, in the table only.
  void show(const std::string& title, const std::string& time, const std::vector<Stage>& stages);
  /// What is drawn stays. The next table stands below it.
  void keep();

 private:
  void draw(const std::string& text);
  void tell(const std::string& title, const std::vector<Stage>& stages);

  std::ostream& out_;
  const Progress_View::Mode mode_;
  const Terminal_Size size_;
  std::string drawn_;  ///< the table that stands right above the cursor
  std::string told_title_;
  std::vector<Stage> told_;
};

}  // namespace ctl
