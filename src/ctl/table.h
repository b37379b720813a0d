#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace ctl {

/// Rows of text, printed in aligned columns under their headings. A heading that begins with '>' aligns its column to
/// the right.
class Table {
 public:
  explicit Table(std::vector<std::string> headings);

  /// Adds a row of as many cells as there are headings.
  void add(std::vector<std::string> cells);
  void print(std::ostream& out) const;

 private:
  std::vector<bool> right_;
  std::vector<std::vector<std::string>> rows_;  // the headings are the first
};

}  // namespace ctl
