#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "ctl/sets/pool.h"
#include "json_spirit/json_spirit_value.h"

namespace ctl {

/// A set in a listing, for scripts.
json_spirit::Object list_document(const Pool_Set& set);
/// The same for people: name, number, incarnation, time, files, size, stored size, compression, resource, host.
std::vector<std::string> list_row(const Pool_Set& set);

/// All that a commit record tells, for scripts and for people.
json_spirit::Object record_document(const Pool_Set& set);
void print_record(std::ostream& out, const Pool_Set& set);

}  // namespace ctl
