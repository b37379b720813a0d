#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "ctl/failure.h"
#include "json_spirit/json_spirit_value.h"

namespace ctl {

void print_json(std::ostream& out, const json_spirit::Object& document);

/// Prints a document of one array, which may be longer than memory, as print_json() would: each element as it comes.
class Array_Printer {
 public:
  /// Nothing is printed before the first element. @param name  of the array in the document.
  Array_Printer(std::ostream& out, std::string name) : out_(out), name_(std::move(name)) {}

  void add(const json_spirit::Object& element);
  /// Behind the last element.
  void end();

 private:
  void begin();

  std::ostream& out_;
  const std::string name_;
  bool empty_ = true;
};

/// Rows of texts and truths, for people a table, for scripts an array of objects.
class Listing {
 public:
  struct Column {
    std::string member;   ///< in the document
    std::string heading;  ///< in the table
  };

  /// @param name  of the array in the document.
  Listing(std::string name, std::vector<Column> columns) : name_(std::move(name)), columns_(std::move(columns)) {}

  /// Adds a row of as many cells as there are columns, each a string or a bool.
  void add(std::vector<json_spirit::Value> cells) { rows_.push_back(std::move(cells)); }
  json_spirit::Object document() const;
  /// @return exit_ok.
  Exit_Code print(bool json, std::ostream& out) const;

 private:
  std::string name_;
  std::vector<Column> columns_;
  std::vector<std::vector<json_spirit::Value>> rows_;
};

}  // namespace ctl
