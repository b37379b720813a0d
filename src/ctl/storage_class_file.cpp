#include "ctl/storage_class_file.h"

#include <unistd.h>

#include "ctl/failure.h"
#include "json_spirit/json_spirit_helper.h"
#include "k8s/api/k8s_pvc_data_helper.h"
#include "kolt/printable.h"

namespace ctl {

using json_spirit::Value;

namespace {

Storage_Class_Map* map_of(Storage_Classes& classes, const std::string& type) {
  switch (Storage_Class_Config::get_sc_type(type.c_str())) {
    case SC_TYPE_CSI:
      return &classes.csi;
    case SC_TYPE_LOCAL:
      return &classes.local;
    case SC_TYPE_NFS:
      return &classes.nfs;
    default:
      return nullptr;
  }
}

json_spirit::Object object_in(const std::string& file) {
  Value document;
  if (::access(file.c_str(), R_OK) != 0)
    throw Failure(exit_usage, "'" + file + "' cannot be read. --file FILE names another one.");
  if (!json_spirit::load_json(file.c_str(), document, json_spirit::LOAD_STRICT) ||
      document.type() != json_spirit::obj_type)
    throw Failure(exit_usage, "'" + file + "' holds no JSON object.");
  return std::move(document.get_obj());
}

}  // namespace

Storage_Classes read_storage_classes(const std::string& file, std::ostream& notes) {
  Storage_Classes classes;
  for (const auto& [type, names] : object_in(file)) {
    if (names.type() != json_spirit::array_type)
      throw Failure(exit_usage, "'" + file + "': '" + printable(type) + "' is no array of names.");
    Storage_Class_Map* const map = map_of(classes, type);
    if (map == nullptr) notes << "'" << printable(type) << "' is none of csi, local and nfs, and passed over.\n";
    for (const Value& name : names.get_array()) {
      if (name.type() != json_spirit::str_type)
        notes << "Something under '" << printable(type) << "' is no name, and passed over.\n";
      else if (map != nullptr)
        map->emplace(name.get_str(), CAPABILITY_NONE);
    }
  }
  if (classes.csi.empty()) notes << "No class is named under 'csi': none is tried out.\n";
  return classes;
}

}  // namespace ctl
