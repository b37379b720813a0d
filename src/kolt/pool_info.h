#pragma once

#include <map>
#include <string>

#include "json_spirit/value_fwd.h"
#include "kolt/encryption.h"
#include "kolt/export.h"
#include "kolt/secure_memory.h"

/// What a job's JSON tells about its storage pool.
struct TESSARIN_API Pool_Info {
  typedef std::map<std::string, std::string> Ext_Attrs_T;
  /// Node id to address.
  typedef std::map<unsigned int, std::string> Node_Addrs_T;

  std::string uuid;
  std::string name;
  std::string host_uuid;
  std::string url;
  bool device_exists = true;
  bool multidevice = false;
  bool server_side_encryption = false;
  Encryption_Algorithm cipher = ENCRYPT_NONE;
  std::string key;  ///< raw bytes; base64 in JSON
  std::string iv;   ///< raw bytes; base64 in JSON
  std::string preferred_source_address;
  std::string tenant_access_key;
  Ext_Attrs_T ext_attrs;
  Node_Addrs_T node_addrs;
  std::string dedup_backend_type;
  Ext_Attrs_T default_s3;
  bool s3_enabled = false;

  /// Wipes the keys, and the attributes, which may hold some.
  ~Pool_Info() {
    secure_wipe(key);
    secure_wipe(tenant_access_key);
    secure_wipe(ext_attrs);
    secure_wipe(default_s3);
  }

  /**
   * Reads a description; every member is optional and one of another kind counts as absent.
   *
   * An absent member leaves its field as it was, but cipher, key, iv, ext_attrs, node_addrs and default_s3 are then
   * cleared. A key or iv that is not base64 reads as empty. node_addrs is read only with multidevice. Never fails and
   * never logs.
   */
  Pool_Info& operator<<(const json_spirit::Object& obj);

  /// Writes all fields into @a obj, over members of the same names; an empty key or iv is left out.
  const Pool_Info& operator>>(json_spirit::Object& obj) const;
};
