#include "ctl/print.h"

#include "ctl/table.h"
#include "json_spirit/dump.h"
#include "kolt/printable.h"

namespace ctl {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

std::string cell_text(const Value& cell) {
  if (cell.type() == json_spirit::bool_type) return cell.get_bool() ? "yes" : "no";
  return cell.get_str().empty() ? "-" : printable(cell.get_str());
}

}  // namespace

void print_json(std::ostream& out, const Object& document) {
  out << json_spirit::JSON_Dump(document, true).c_str() << std::endl;
}

void Array_Printer::begin() {
  out_ << "{\n  \"" << name_ << "\": [";
}

void Array_Printer::add(const Object& element) {
  if (empty_) begin();
  std::string text = empty_ ? "\n    " : ",\n    ";
  empty_ = false;
  // No text in a document holds a line feed as it is.
  const json_spirit::JSON_Dump dump(element, true);
  for (const char c : dump.str()) {
    text += c;
    if (c == '\n') text += "    ";
  }
  out_ << text;
}

void Array_Printer::end() {
  if (empty_) begin();
  out_ << (empty_ ? "]\n}" : "\n  ]\n}") << std::endl;
}

Object Listing::document() const {
  Array array;
  for (const auto& row : rows_) {
    Object object;
    for (size_t i = 0; i < columns_.size(); ++i) object[columns_[i].member] = row[i];
    array.emplace_back(std::move(object));
  }
  Object document;
  document[name_] = std::move(array);
  return document;
}

Exit_Code Listing::print(bool json, std::ostream& out) const {
  if (json) {
    print_json(out, document());
    return exit_ok;
  }
  std::vector<std::string> headings;
  for (const Column& column : columns_) headings.push_back(column.heading);
  Table table(headings);
  for (const auto& row : rows_) {
    std::vector<std::string> cells;
    for (const Value& cell : row) cells.push_back(cell_text(cell));
    table.add(std::move(cells));
  }
  table.print(out);
  return exit_ok;
}

}  // namespace ctl
