#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.h"

#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "ace/Log_Msg.h"
#include "ace/Null_Mutex.h"
#include "ace/Singleton.h"
#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "json_spirit/log_with_dump.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/node_paths.h"
#include "k8s/websvcs_agent/k8s_sclient/drivers.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_volume_event_handler.h"
#include "kolt/check_macros.h"
#include "kolt/dir_size.h"
#include "kolt/first_match.h"
#include "kolt/path.h"
#include "kolt/rm_all.h"
#include "kolt/scoped_deleter.h"
#include "task/task_manager.h"

using json_spirit::Array;
using json_spirit::JSON_Dump;
using json_spirit::Object;

typedef ACE_Unmanaged_Singleton<K8S_SClient_Task_Handler, ACE_Null_Mutex> K8S_SClient_Task_Handler_Singleton;
typedef K8S_SClient_Volume_Event_Handler Totals;

// Runs when the plug-in is unloaded.
__attribute__((destructor)) static void K8S_SClient_Task_Handler_fini() {
  K8S_SClient_Task_Handler::close_instance();
}

// The lock of the singleton is a null mutex: the instance is made while the plug-in is loaded, ahead of all job
// threads.
__attribute__((constructor)) static void K8S_SClient_Task_Handler_init() {
  K8S_SClient_Task_Handler::instance();
}

K8S_SClient_Task_Handler::K8S_SClient_Task_Handler() : act_state_(JOB_STATE_NONE) {}

K8S_SClient_Task_Handler* K8S_SClient_Task_Handler::instance() {
  return K8S_SClient_Task_Handler_Singleton::instance();
}

void K8S_SClient_Task_Handler::close_instance() {
  K8S_SClient_Task_Handler_Singleton::close();
}

bool K8S_SClient_Task_Handler::open() {
  Totals::total_size = 0;
  Totals::processed_size = 0;
  Totals::set_size = 0;
  Totals::storage_size = 0;
  instance()->set_act_state(JOB_STATE_NONE);
  return true;
}

bool K8S_SClient_Task_Handler::close() {
  return true;
}

bool K8S_SClient_Task_Handler::remove(const std::string&) {
  return true;
}

bool K8S_SClient_Task_Handler::get(const std::string& id, Object& task) {
  if (Task_Manager::instance()->get(id, task)) return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Job id %s is not found.\n"), id.c_str()));
  return false;
}

void K8S_SClient_Task_Handler::set_act_state(Job_State state) {
  act_state_ = state;
}

Job_State K8S_SClient_Task_Handler::get_act_state() const {
  return act_state_;
}

bool K8S_SClient_Task_Handler::execute(const Object& task, Object& result) {
  const Object* data = nullptr;
  json_spirit::extract(task)("data", data);
  KOLT_RETURN_IF_NULL(data, false);

  const std::string* type = nullptr;
  const Object* params = nullptr;
  json_spirit::extract (*data)("type", type)("params", params);
  KOLT_RETURN_IF_EMPTY(type, false);
  KOLT_RETURN_IF_EMPTY(params, false);

  const std::string* id = nullptr;
  json_spirit::extract(task)("id", id);
  KOLT_RETURN_IF_EMPTY(id, false);

  if (*type == "backup") return backup(*params, *id, result);
  if (*type == "restore") return restore(*params, *id, result);
  ACE_ERROR((LM_ERROR, ACE_TEXT("Unkown execute type: %s.\n"), type->c_str()));
  return false;
}

namespace {

/// Finds the volume's data by its pattern, binds it and adds where it stands now to @a mount_paths.
bool bind_volume(const Object& volume, std::vector<std::string>& mount_paths) {
  const std::string* data_path = nullptr;
  const std::string* mount_path = nullptr;
  json_spirit::extract(volume)("data_path", data_path)("mount_path", mount_path);
  KOLT_RETURN_IF_EMPTY(data_path, false);
  KOLT_RETURN_IF_EMPTY(mount_path, false);

  const std::optional<std::string> target = first_match(*data_path);
  if (!target) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get backup path %s.\n"), data_path->c_str()));
    return false;
  }
  if (!k8s::mount_bind(*target, *mount_path)) return false;
  mount_paths.push_back(*mount_path);
  return true;
}

/// A failed unmount changes nothing for the job: rm_all() doesn't reach into what is still mounted.
void remove_binds() {
  if (!is_directory(k8s::data_directory)) return;
  k8s::umounts(k8s::data_directory);
  rm_all(k8s::data_directory);
}

/// Resolves where each set path goes to now; `entries` is the selection of all of them.
bool resolve_rules(const Object& rules, Array& entries, MTF_FS::path_transform_rules& rules_map) {
  entries.reserve(rules.size());
  for (const Object::value_type& obj : rules) {
    KOLT_RETURN_IF_NOT_IN("k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler",
                          obj.second.type() == json_spirit::str_type, obj.second, "string", false);
    const std::string& pattern = obj.second.get_str();
    const std::optional<std::string> target = first_match(pattern);
    if (!target) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get restore path %s.\n"), pattern.c_str()));
      return false;
    }
    rules_map[obj.first] = *target;
    json_spirit::append_new_object(entries)["dir"] = obj.first;
  }
  return true;
}

}  // namespace

bool K8S_SClient_Task_Handler::backup(const Object& params, const std::string& job_id, Object& result) {
  ACE_DEBUG((LM_DEBUG, ACE_TEXT("Backup task '%s' start.\n"), job_id.c_str()));
  open();

  const Array* paths = nullptr;
  try {
    json_spirit::extract_or_throw(params)("paths", paths);
  } catch (const std::exception&) {
    ACE_ERROR(
        (LM_ERROR, ACE_TEXT("Failed to extract backup information from\n%s.\n"), JSON_Dump(params, false).c_str()));
    return false;
  }

  const auto clean_up = make_deleter(remove_binds);
  std::vector<std::string> mount_paths;
  for (const Object& volume : *paths | json_spirit::get_obj)
    if (!bind_volume(volume, mount_paths)) return false;

  Totals::total_size = dir_size(k8s::data_directory);
  for (const std::string& mount_path : mount_paths)
    if (!mtf_backup(job_id, kolt::basename(mount_path, '/'), mount_path, params)) return false;

  json_spirit::insert(result)("size", Totals::total_size.load())("set_size", Totals::set_size.load())(
      "storage_size", Totals::storage_size.load());
  return true;
}

bool K8S_SClient_Task_Handler::restore(const Object& params, const std::string& job_id, Object& result) {
  ACE_DEBUG((LM_DEBUG, ACE_TEXT("Restore task '%s' start.\n"), job_id.c_str()));
  open();

  const Object* rules = nullptr;
  ACE_UINT64 total_size = 0;
  std::string node_name_hex;
  try {
    json_spirit::extract_or_throw(params)("rules", rules)("total_size", total_size)("node_name_hex", node_name_hex);
  } catch (const std::exception& error) {
    log_with_dump(LM_ERROR, "Failed to extract restore information from\n%s\nerror %s.\n", JSON_Dump(params, false),
                  error.what());
    return false;
  }

  Array entries;
  MTF_FS::path_transform_rules rules_map;
  if (!resolve_rules(*rules, entries, rules_map)) return false;

  Totals::total_size = total_size;
  const bool v1_backup_set = total_size == 0;
  for (const auto& [set_path, target] : rules_map) {
    const std::string name = v1_backup_set ? node_name_hex : kolt::basename(set_path, '/');
    if (!mtf_restore(job_id, name, entries, rules_map, params)) return false;
  }

  json_spirit::insert(result)("size", Totals::total_size.load())("set_size", Totals::set_size.load())("storage_size",
                                                                                                      0);
  return true;
}
