#include "json_rpc/json_rpc_method.h"

#include <algorithm>
#include <new>
#include <string_view>

#include "ace/DLL_Manager.h"
#include "ace/Get_Opt.h"
#include "ace/Log_Msg.h"
#include "ace/svc_export.h"
#include "json_rpc/json_rpc_dispatcher.h"
#include "kolt/trusted_file.h"

namespace {

typedef JSON_RPC_Handler* (*Factory)(JSON_RPC_Handler_Exterminator*);

struct Words {
  std::string method;
  std::string path;
  std::string factory;
  int rest = 0;  // index of the first word for the handler
};

bool parse(int argc, ACE_TCHAR* argv[], Words& words) {
  const std::string_view end_of_own = "--";
  const int own = static_cast<int>(std::find(argv, argv + argc, end_of_own) - argv);
  words.rest = std::min(own + 1, argc);
  ACE_Get_Opt options(own, argv, ACE_TEXT("m:f:"), 0);
  for (int option; (option = options()) != EOF;) {
    if (option == 'm') {
      words.method = options.opt_arg();
    } else if (option == 'f') {
      const std::string place = options.opt_arg();
      const size_t colon = place.rfind(':');
      words.path = place.substr(0, colon);
      if (colon != std::string::npos) words.factory = place.substr(colon + 1);
    } else {
      return false;
    }
  }
  return !words.method.empty() && !words.path.empty() && !words.factory.empty();
}

}  // namespace

JSON_RPC_Method::~JSON_RPC_Method() {
  fini();
}

int JSON_RPC_Method::init(int argc, ACE_TCHAR* argv[]) {
  Words words;
  if (!parse(argc, argv, words)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("A JSON-RPC method needs -m METHOD -f PLUGIN:FACTORY.\n")), -1);
  }
  if (load(words.path, words.factory) == -1) {
    fini();
    return -1;
  }
  if (handler_->init(argc - words.rest, argv + words.rest) == -1) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("The handler of '%C' refuses to start.\n"), words.method.c_str()));
    fini();
    return -1;
  }
  if (JSON_RPC_Dispatcher::instance()->bind(words.method, handler_, words.path) == -1) {
    handler_->fini();
    fini();
    return -1;
  }
  method_ = words.method;
  ACE_DEBUG((LM_INFO, ACE_TEXT("Method '%C' is bound to %C in '%C'.\n"), words.method.c_str(), words.factory.c_str(),
             words.path.c_str()));
  return 0;
}

int JSON_RPC_Method::load(const std::string& path, const std::string& factory_name) {
  if (!is_trusted_file(path)) return -1;
  // By default ACE asks the plug-in, finds the answer of its own library there, and never unloads.
  ACE_DLL_Manager::instance()->unload_policy(ACE_DLL_UNLOAD_POLICY_PER_PROCESS);
  if (plugin_.open(path.c_str(), ACE_DEFAULT_SHLIB_MODE, true) == -1) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to load '%C': %C\n"), path.c_str(), plugin_.error()), -1);
  }
  const auto factory = reinterpret_cast<Factory>(plugin_.symbol(factory_name.c_str(), 1));
  if (!factory) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("'%C' has no factory %C.\n"), path.c_str(), factory_name.c_str()), -1);
  }
  handler_ = factory(&gobbler_);
  if (!handler_ || !gobbler_) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("%C of '%C' made no handler: %m\n"), factory_name.c_str(), path.c_str()), -1);
  }
  return 0;
}

int JSON_RPC_Method::fini() {
  if (!method_.empty()) {
    JSON_RPC_Dispatcher::instance()->unbind(method_);
    handler_->fini();
    method_.clear();
  }
  if (handler_ && gobbler_) gobbler_(handler_);
  handler_ = nullptr;
  gobbler_ = nullptr;
  plugin_.close();
  return 0;
}

namespace {

void gobble_method(void* object) {
  delete static_cast<JSON_RPC_Method*>(static_cast<ACE_Service_Object*>(object));
}

}  // namespace

/// What ACE calls for a line of the service configuration.
extern "C" TESSARIN_API ACE_Service_Object* _make_JSON_RPC_Method(ACE_Service_Object_Exterminator* gobbler) {
  if (gobbler) *gobbler = gobble_method;
  return new (std::nothrow) JSON_RPC_Method;
}
