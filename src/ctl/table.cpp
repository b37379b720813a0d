#include "ctl/table.h"

#include <algorithm>
#include <utility>

#include "kolt/utf8.h"

namespace ctl {

namespace {

/// Characters of a UTF-8 text.
size_t width(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return !kolt::utf8_continues(c); }));
}

}  // namespace

Table::Table(std::vector<std::string> headings) {
  for (std::string& heading : headings) {
    right_.push_back(heading.rfind('>', 0) == 0);
    if (right_.back()) heading.erase(0, 1);
  }
  rows_.push_back(std::move(headings));
}

void Table::add(std::vector<std::string> cells) {
  cells.resize(right_.size());
  rows_.push_back(std::move(cells));
}

void Table::print(std::ostream& out) const {
  std::vector<size_t> widths(right_.size());
  for (const auto& row : rows_)
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width(row[i]));
  for (const auto& row : rows_) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - width(row[i]), ' ');
      if (i > 0) line += "  ";
      line += right_[i] ? padding + row[i] : row[i] + padding;
    }
    out << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
  }
}

}  // namespace ctl
