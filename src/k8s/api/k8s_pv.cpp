#include "k8s/api/k8s_pv.h"

#include "ace/Log_Msg.h"
#include "json_spirit/extract.h"

using json_spirit::Object;
using json_spirit::Value;

K8S_PV::K8S_PV(K8S_Client_var client) : K8S_Resource(std::move(client), "/api/v1/persistentvolumes", "") {}

K8S_PV::~K8S_PV() = default;

bool K8S_PV::delete_(const std::string&, bool, int) {
  ACE_DEBUG((LM_INFO, ACE_TEXT("K8S persistent volume delete method not implemented.\n")));
  return true;
}

bool K8S_PV::is_CSI(const std::string& name) {
  Value pv;
  if (!get(name, pv, true)) return false;
  const Object* csi = nullptr;
  pextract(std::as_const(pv))("/spec/csi", csi);
  return csi && !csi->empty();
}

bool K8S_PV::get_driver(const std::string& name, std::string& driver) {
  Value pv;
  if (!get(name, pv, true)) return false;
  pextract(pv)("/spec/csi/driver", driver);
  return !driver.empty();
}
