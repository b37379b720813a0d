#pragma once

#include "k8s/api/k8s_resource.h"

/// The config maps of a namespace, each of which holds one JSON document as text, under the key "config.json".
class K8S_Config_Map : public K8S_Resource {
 public:
  K8S_Config_Map(K8S_Client_var client, const std::string& ns);
  ~K8S_Config_Map() override;

  /// Makes the config map @a name with the document @a config_json and no other key. It bears no label.
  bool create(const std::string& name, const json_spirit::Value& config_json, const std::string& api_version);

  /**
   * Sends the document as a patch of the config map @a name.
   *
   * @param content_type  the kind of patch, which decides what becomes of the map's other keys.
   * @retval true  an exchange took place, whatever its status. Nothing is logged here.
   */
  bool patch(const std::string& name, const json_spirit::Value& config_json, const char* content_type);

 private:
  std::string ns_;
};
