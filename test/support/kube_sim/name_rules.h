#pragma once

#include <string>

#include "json_spirit/json_spirit_value.h"
#include "support/kube_sim/resource_table.h"
#include "support/kube_sim/status_document.h"

/// What names and labels may look like. What is wrong is added to @a causes, in the server's words.
namespace kube_sim {

void check_name(const Resource& resource, const std::string& name, Causes& causes);
void check_labels(const json_spirit::Object& labels, const std::string& field, Causes& causes);
/// A name that is one DNS label of at most 63 characters.
void check_label_name(const std::string& name, const std::string& field, Causes& causes);

/// Whether @a key may be a key in the data of a config map; if not, the rule that it breaks.
bool is_data_key(const std::string& key);
extern const char data_key_rule[];

}  // namespace kube_sim
