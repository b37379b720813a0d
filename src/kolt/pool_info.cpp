#include "kolt/pool_info.h"

#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "kolt/base64_decoder.h"
#include "kolt/base64_encoder.h"

using json_spirit::Array;
using json_spirit::extract;
using json_spirit::Object;
using json_spirit::Value;

namespace {

std::string decode(const std::string* text) {
  Base64_Decoder decoder;
  if (text == nullptr || !decoder.set(text->c_str(), -1)) return std::string();
  return std::string(reinterpret_cast<const char*>(decoder.get()), decoder.length());
}

void copy_strings(const Object* from, Pool_Info::Ext_Attrs_T& to) {
  to.clear();
  if (from == nullptr) return;
  for (const auto& [name, value] : *from)
    if (value.type() == json_spirit::str_type) to[name] = value.get_str();
}

void copy_addresses(const Array& from, Pool_Info::Node_Addrs_T& to) {
  for (const Value& element : from) {
    if (element.type() != json_spirit::obj_type) continue;
    int node_id = 0;
    const std::string* address = nullptr;
    extract(element.get_obj())("node_id", node_id)("address", address);
    if (node_id != 0 && address != nullptr) to[static_cast<unsigned int>(node_id)] = *address;
  }
}

Object to_object(const Pool_Info::Ext_Attrs_T& attrs) {
  return Object(attrs.begin(), attrs.end());
}

Array to_array(const Pool_Info::Node_Addrs_T& addresses) {
  Array array;
  for (const auto& [node_id, address] : addresses) array.push_back(Object{{"node_id", node_id}, {"address", address}});
  return array;
}

}  // namespace

Pool_Info& Pool_Info::operator<<(const Object& obj) {
  int number = 0;
  const std::string* key_text = nullptr;
  const std::string* iv_text = nullptr;
  const Object* attrs = nullptr;
  const Array* addresses = nullptr;
  const Object* s3 = nullptr;
  auto read = extract(obj);
  read("uuid", uuid)("name", name)("host_uuid", host_uuid)("url", url);
  read("device_exists", device_exists)("multidevice", multidevice)("server_side_encryption", server_side_encryption);
  read("cipher", number)("key", key_text)("iv", iv_text);
  read("tenant_access_key", tenant_access_key)("preferred_source_address", preferred_source_address);
  read("ext_attrs", attrs)("node_addrs", addresses);
  read("dedup_backend_type", dedup_backend_type)("s3_enabled", s3_enabled)("default_s3", s3);
  key = decode(key_text);
  iv = decode(iv_text);
  cipher = static_cast<Encryption_Algorithm>(number);
  copy_strings(attrs, ext_attrs);
  node_addrs.clear();
  if (multidevice && addresses != nullptr) copy_addresses(*addresses, node_addrs);
  copy_strings(s3, default_s3);
  return *this;
}

const Pool_Info& Pool_Info::operator>>(Object& obj) const {
  obj["uuid"] = uuid;
  obj["name"] = name;
  obj["host_uuid"] = host_uuid;
  obj["url"] = url;
  obj["device_exists"] = device_exists;
  obj["multidevice"] = multidevice;
  obj["server_side_encryption"] = server_side_encryption;
  obj["cipher"] = static_cast<int>(cipher);
  if (!key.empty()) obj["key"] = base64_encode(key);
  if (!iv.empty()) obj["iv"] = base64_encode(iv);
  obj["preferred_source_address"] = preferred_source_address;
  obj["tenant_access_key"] = tenant_access_key;
  obj["ext_attrs"] = to_object(ext_attrs);
  obj["node_addrs"] = to_array(node_addrs);
  obj["dedup_backend_type"] = dedup_backend_type;
  obj["default_s3"] = to_object(default_s3);
  obj["s3_enabled"] = s3_enabled;
  return *this;
}
