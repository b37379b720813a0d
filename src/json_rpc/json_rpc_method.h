#pragma once

#include <string>

#include "ace/DLL.h"
#include "ace/Service_Object.h"
#include "json_rpc/json_rpc_handler.h"
#include "kolt/export.h"

/**
 * The ACE service that binds a JSON-RPC method to a handler of a plug-in. A line of the service configuration:
 *
 *   dynamic K8S_Backup Service_Object * /usr/lib/tessarin/libtessarin.so:_make_JSON_RPC_Method()
 *     "-m k8s.backup -f /usr/lib/tessarin/libk8s_sclient.so:_make_JSON_RPC_K8S_Backup_Handler"
 *
 * -m is the method, -f the plug-in's absolute path and the name of the exported factory, of the type
 * `JSON_RPC_Handler* (JSON_RPC_Handler_Exterminator*)`. What stands behind "--" goes to the handler's init().
 *
 * The plug-in's file and the directories above it have to be trusted (see trusted_file.h): it runs with all rights of
 * the process. JSON_RPC_Thread_Pool is closed before the service is taken down.
 */
class TESSARIN_API JSON_RPC_Method : public ACE_Service_Object {
 public:
  JSON_RPC_Method() = default;
  /// As fini().
  ~JSON_RPC_Method() override;

  /// @retval -1  nothing is bound or left loaded; one line at LM_ERROR.
  int init(int argc, ACE_TCHAR* argv[]) override;
  /// Unbinds, destroys the handler through what its factory handed out, unloads the plug-in. Harmless when not bound.
  int fini() override;

 private:
  int load(const std::string& path, const std::string& factory);

  std::string method_;  // as bound
  ACE_DLL plugin_;
  JSON_RPC_Handler* handler_ = nullptr;
  JSON_RPC_Handler_Exterminator gobbler_ = nullptr;
};
