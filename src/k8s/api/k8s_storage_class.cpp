#include "k8s/api/k8s_storage_class.h"

#include "json_spirit/extract.h"
#include "k8s/api/k8s_utils.h"
#include "kolt/check_macros.h"

using json_spirit::Object;
using json_spirit::Value;

K8S_Storage_Class::K8S_Storage_Class(K8S_Client_var client)
    : K8S_Resource(std::move(client), "/apis/storage.k8s.io/v1/storageclasses", "") {}

K8S_Storage_Class::~K8S_Storage_Class() = default;

bool K8S_Storage_Class::create_immediate_sc(const std::string& sc, std::string& new_sc) {
  Value sc_val;
  if (!get(sc, sc_val, true) || sc_val.type() != json_spirit::obj_type) return false;

  Object* metadata = nullptr;
  std::string* volume_binding_mode = nullptr;
  extract(sc_val.get_obj())("metadata", metadata)("volumeBindingMode", volume_binding_mode);
  KOLT_RETURN_IF_EMPTY(metadata, false);
  KOLT_RETURN_IF_EMPTY(volume_binding_mode, false);

  // The server refuses a new object that has a resource version.
  for (const char* key : {"selfLink", "uid", "resourceVersion"}) metadata->erase(key);
  *volume_binding_mode = "Immediate";
  new_sc = k8s::generate_random_string(8);
  (*metadata)["name"] = new_sc;
  if (post(sc_val)) return true;

  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create immediate volume binding mode storage class '%s' of '%s'.\n"),
             new_sc.c_str(), sc.c_str()));
  return false;
}
