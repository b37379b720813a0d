// The plug-in as the agent sees it: a shared object, loaded at run time.
#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <set>

#include "json_rpc/json_rpc_handler.h"

namespace {

const std::set<std::string> factories = {"_make_JSON_RPC_K8S_Backup_Handler", "_make_JSON_RPC_K8S_Cancel_Job_Handler",
                                         "_make_JSON_RPC_K8S_Get_PVC_Size_Handler",
                                         "_make_JSON_RPC_K8S_Process_Handler", "_make_JSON_RPC_K8S_Restore_Handler"};

std::string output_of(const std::string& command) {
  std::string text;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return text;
  std::array<char, 4096> part;
  for (size_t n; (n = fread(part.data(), 1, part.size(), pipe)) > 0;) text.append(part.data(), n);
  return pclose(pipe) == 0 ? text : "";
}

TEST(Plug_In, DefinesItsFiveFactoriesAndNothingElse) {
  std::istringstream lines(output_of("nm -D --defined-only --format=posix " PLUGIN_PATH));
  std::set<std::string> symbols;
  for (std::string line; std::getline(lines, line);) symbols.insert(line.substr(0, line.find(' ')));
  EXPECT_EQ(factories, symbols);
}

TEST(Plug_In, MakesAndDestroysItsHandlersAndIsUnloaded) {
  void* plugin = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(nullptr, plugin) << dlerror();
  for (const std::string& name : factories) {
    typedef JSON_RPC_Handler* (*Factory)(JSON_RPC_Handler_Exterminator*);
    const Factory make = reinterpret_cast<Factory>(dlsym(plugin, name.c_str()));
    ASSERT_NE(nullptr, make) << name;
    JSON_RPC_Handler_Exterminator gobbler = nullptr;
    JSON_RPC_Handler* handler = make(&gobbler);
    ASSERT_NE(nullptr, handler) << name;
    gobbler(handler);
  }
  EXPECT_EQ(0, dlclose(plugin));
  EXPECT_EQ(nullptr, dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_NOLOAD));
}

TEST(Plug_In, IsLoadedAgainAfterItWasUnloaded) {
  for (int i = 0; i < 3; ++i) {
    void* plugin = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, plugin) << dlerror();
    EXPECT_EQ(0, dlclose(plugin));
  }
}

}  // namespace
