#include <exception>
#include <optional>
#include <string>

#include "ace/Log_Msg.h"
#include "ace/OS_NS_errno.h"
#include "client_io/util.h"
#include "json_spirit/extract.h"
#include "json_spirit/log_with_dump.h"
#include "k8s/job/k8s_restore_callback.h"
#include "k8s/websvcs_agent/k8s_sclient/client_io_options.h"
#include "k8s/websvcs_agent/k8s_sclient/drivers.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_volume_event_handler.h"
#include "kolt/check_macros.h"
#include "kolt/pool_info.h"
#include "kolt/rate_controller.h"
#include "kolt/string_sprintf.h"
#include "mtf_backup/channel_factory.h"
#include "mtf_backup/mtf_restore.h"

using json_spirit::Object;

namespace {

constexpr char target_root[] = "/";

/// What the driver reads of a job's `params`.
struct Restore_Params {
  std::string minor_resource_id;
  std::string pool_uuid;
  std::string host_uuid;
  ACE_INT64 seq = 0;
  ACE_UINT32 incarnation = 0;
  size_t channel_num = 0;
  size_t concurrent = 0;
  std::string access_key;
  const Object* pool_info = nullptr;
  size_t max_seconds_retry = 0;
  size_t resumption_buffer_size = 0;
  Rate_Limits rate_limits;

  /// Throws std::exception where a required member is missing or of another type.
  explicit Restore_Params(const Object& params) {
    json_spirit::extract_or_throw(params)("minor_resource_id", minor_resource_id)("pool_uuid", pool_uuid)(
        "host_uuid", host_uuid)("seq", seq)("incarnation", incarnation)("channel_num", channel_num)(
        "concurrent", concurrent)("access_key", access_key)("pool_info", pool_info)(
        "max_seconds_retry", max_seconds_retry)("resumption_buffer_size", resumption_buffer_size);
    rate_limits.from_array_in_object(params, false);
  }
};

void select_set(const Restore_Params& job, const json_spirit::Array& entries,
                const MTF_FS::path_transform_rules& rules_map, MTF_Restore& restore) {
  restore.definition_uuid(job.minor_resource_id);
  restore.target_location(target_root);
  restore.backup_minor_resource_id(job.minor_resource_id);
  K8S_Restore_Callback_Factory* callbacks = nullptr;
  ACE_NEW_NORETURN(callbacks, K8S_Restore_Callback_Factory);
  restore.callback_factory(MTF::IRestore_Callback_Factory_var(callbacks));
  restore.restore_select(&entries);
  restore.pool_uuid(job.pool_uuid, false);
  restore.backup_host_uuid(job.host_uuid);
  restore.incarnation(job.incarnation);
  restore.seq(static_cast<ACE_UINT32>(job.seq));
  restore.channel_num(job.channel_num);
  restore.concurrent(job.concurrent);
  restore.path_converter(
      MTF_FS::create_transform_path_converter(target_root, rules_map, false, MTF::IPath_Converter_var()));
}

}  // namespace

bool mtf_restore(const std::string& job_id, const std::string& name, const json_spirit::Array& entries,
                 const MTF_FS::path_transform_rules& rules_map, const Object& params) {
  std::optional<Restore_Params> job;
  try {
    job.emplace(params);
  } catch (const std::exception& error) {
    log_with_dump(LM_ERROR, "Failed to extract restore information from\n%s\nerror %s.\n",
                  json_spirit::JSON_Dump(params, false), error.what());
    return false;
  }

  K8S_SClient_Volume_Event_Handler* event_handler = nullptr;
  ACE_NEW_RETURN(event_handler, K8S_SClient_Volume_Event_Handler(job_id), false);
  const MTF::Event_Handler_var events(event_handler);
  MTF_Restore restore(events, ACE_Log_Msg_Callback_var());
  select_set(*job, entries, rules_map, restore);

  Client_IO_Base::Options& client_opts = restore.extra_client_io_opts();
  set_access_key_to_options(client_opts, job->access_key);
  set_client_io_options(client_opts, job->rate_limits, job->max_seconds_retry, job->resumption_buffer_size, false,
                        job->channel_num);

  Pool_Info pool;
  pool << *job->pool_info;
  const std::string storage_path = string_sprintf("%s/%s", job->host_uuid.c_str(), job->minor_resource_id.c_str());
  const MTF_BACKUP::Channel_Factory_var channel_factory =
      MTF_BACKUP::make_channel_factory(pool, storage_path, client_opts);
  KOLT_RETURN_IF_NULL(channel_factory, false);

  restore.channel_factory(channel_factory);
  if (!restore.restore(name) && restore.err_code() != MTF::E_NO_FILES_RESTORED) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to restore data from storage.\n")));
    return false;
  }

  K8S_SClient_Volume_Event_Handler::processed_size += restore.size();
  K8S_SClient_Volume_Event_Handler::set_size += restore.set_size();
  return true;
}
