#include "ctl/stage_view.h"

#include <algorithm>
#include <sstream>

#include "ctl/table.h"
#include "kolt/printable.h"

namespace ctl {

namespace {

constexpr char absent[] = "not in the cluster";

std::string stage_of(const Resource_Base& object, bool reached, const char* reached_text, bool cleaning) {
  if (object.name_.empty()) return "";
  if (cleaning) return object.deleted_ ? "removed" : "removing";
  return reached ? reached_text : "pending";
}

std::string cell(const std::string& text) {
  return text.empty() ? "-" : text;
}

std::string table_text(const std::vector<Stage>& stages) {
  Table table({"CLASS", "CLAIM", "CLONE", "SNAPSHOT"});
  for (const Stage& stage : stages)
    table.add({printable(stage.name), cell(stage.claim), cell(stage.clone), cell(stage.snapshot)});
  std::ostringstream text;
  table.print(text);
  return text.str();
}

/// Lines of a terminal that is narrower would be broken and counted wrongly.
std::string cut_lines(const std::string& text, size_t columns) {
  std::istringstream lines(text);
  std::string cut;
  for (std::string line; std::getline(lines, line);) cut += line.substr(0, columns) + '\n';
  return cut;
}

}  // namespace

std::vector<Stage> stages_of(const Validation_Units& units, bool cleaning) {
  std::vector<Stage> stages;
  for (const auto& unit : units) {
    if (unit.sc_exist_on_system_)
      stages.push_back({unit.sc_name_, stage_of(unit.pvc_, unit.pvc_.bound_, "bound", cleaning),
                        stage_of(unit.pvc_clone_, unit.pvc_clone_.bound_, "bound", cleaning),
                        stage_of(unit.pvc_snap_, unit.pvc_snap_.ready_to_use_, "ready", cleaning)});
    else
      stages.push_back({unit.sc_name_, absent, "", ""});
  }
  return stages;
}

std::string stage_line(const Stage& stage) {
  std::string line = printable(stage.name) + ":";
  if (stage.claim == absent) return line + ' ' + absent;
  const char* separator = " ";
  for (const auto& [what, state] :
       {std::pair("claim", &stage.claim), std::pair("clone", &stage.clone), std::pair("snapshot", &stage.snapshot)}) {
    if (state->empty()) continue;
    line += std::string(separator) + what + ' ' + *state;
    separator = ", ";
  }
  return line;
}

Stage_View::~Stage_View() {
  draw("");
}

void Stage_View::show(const std::string& title, const std::string& time, const std::vector<Stage>& stages) {
  if (mode_ == Progress_View::silent) return;
  const size_t lines_of_text = stages.size() + 2;
  if (mode_ == Progress_View::lines || lines_of_text >= size_.rows)
    tell(title, stages);
  else
    // The last column stays free: some terminals begin a new line behind it.
    draw(cut_lines(title + "  " + time + '\n' + table_text(stages), size_.columns - 1));
}

void Stage_View::keep() {
  drawn_.clear();
}

void Stage_View::draw(const std::string& text) {
  if (text == drawn_) return;
  const auto lines = std::count(drawn_.begin(), drawn_.end(), '\n');
  if (lines > 0) out_ << "\r\033[" << lines << "A\033[J";
  out_ << text << std::flush;
  drawn_ = text;
}

void Stage_View::tell(const std::string& title, const std::vector<Stage>& stages) {
  if (title != told_title_) out_ << title << std::endl;
  told_title_ = title;
  for (const Stage& stage : stages) {
    const bool begun = !stage.claim.empty();
    if (begun && std::find(told_.begin(), told_.end(), stage) == told_.end()) out_ << stage_line(stage) << std::endl;
  }
  told_ = stages;
}

}  // namespace ctl
