#include <exception>
#include <optional>
#include <string>

#include "ace/Log_Msg.h"
#include "ace/OS_NS_errno.h"
#include "client_io/util.h"
#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "k8s/job/k8s_backup_callback.h"
#include "k8s/websvcs_agent/k8s_sclient/client_io_options.h"
#include "k8s/websvcs_agent/k8s_sclient/drivers.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_volume_event_handler.h"
#include "kolt/check_macros.h"
#include "kolt/compression.h"
#include "kolt/job_definition_type.h"
#include "kolt/pool_info.h"
#include "kolt/rate_controller.h"
#include "kolt/string_sprintf.h"
#include "kolt/uri_util.h"
#include "mtf_backup/channel_factory.h"
#include "mtf_backup/mtf_backup.h"

using json_spirit::Object;

namespace {

/// What the driver reads of a job's `params`.
struct Backup_Params {
  const Object* meta = nullptr;
  std::string minor_resource_id;
  const Object* opts = nullptr;
  ACE_INT64 seq = 0;
  std::string subtype;
  size_t max_seconds_retry = 0;
  size_t resumption_buffer_size = 0;
  bool server_side_dedup = false;
  std::string access_key;
  const Object* pool_info = nullptr;
  Rate_Limits rate_limits;

  /// Throws std::exception where a required member is missing or of another type.
  explicit Backup_Params(const Object& params) {
    json_spirit::extract_or_throw(params)("meta", meta)("minor_resource_id", minor_resource_id)("opts", opts)(
        "seq", seq)("subtype", subtype)("max_seconds_retry", max_seconds_retry)("resumption_buffer_size",
                                                                                resumption_buffer_size);
    json_spirit::extract(params)("server_side_dedup", server_side_dedup);
    json_spirit::extract_or_throw(params)("access_key", access_key)("pool_info", pool_info);
    rate_limits.from_array_in_object(params, false);
  }
};

size_t channels_for_limits(const Object& opts) {
  int channel_num = 0;
  json_spirit::extract(opts)("channel_num", channel_num);
  return channel_num > 0 ? static_cast<size_t>(channel_num) : 1;
}

}  // namespace

bool mtf_backup(const std::string& job_id, const std::string& name, const std::string& path, const Object& params) {
  std::optional<Backup_Params> job;
  try {
    job.emplace(params);
  } catch (const std::exception&) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to extract backup information from\n%s.\n"),
               json_spirit::JSON_Dump(params, false).c_str()));
    return false;
  }

  MTF::Metadata meta(*job->meta);
  K8S_SClient_Volume_Event_Handler* event_handler = nullptr;
  ACE_NEW_RETURN(event_handler, K8S_SClient_Volume_Event_Handler(job_id), false);
  MTF_Backup bak(MTF::Event_Handler_var(event_handler), meta, ACE_Log_Msg_Callback_var());

  Pool_Info pool;
  pool << *job->pool_info;
  if (!build_mtf_metadata(meta, job->minor_resource_id, *job->opts, pool, job->seq, bak)) return false;

  K8S_Backup_Callback_Factory* callbacks = nullptr;
  ACE_NEW_NORETURN(callbacks, K8S_Backup_Callback_Factory);
  bak.callback_factory(MTF::IBackup_Callback_Factory_var(callbacks));
  if (job_def_subtype_from_string(job->subtype.c_str(), -1) == JOB_DEFINITION_SUBTYPE_INCREMENTAL)
    bak.incremental(true);

  Client_IO_Base::Options& client_opts = bak.extra_client_io_opts();
  const size_t channels = channels_for_limits(*job->opts);
  set_access_key_to_options(client_opts, job->access_key);
  set_client_io_options(client_opts, job->rate_limits, job->max_seconds_retry, job->resumption_buffer_size,
                        job->server_side_dedup, channels);

  std::string host_uuid;
  if (!meta.get_host_uuid(host_uuid)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get host uuid.\n")));
    return false;
  }
  const std::string storage_path = string_sprintf("%s/%s", host_uuid.c_str(), job->minor_resource_id.c_str());
  const MTF_BACKUP::Channel_Factory_var channel_factory =
      MTF_BACKUP::make_channel_factory(pool, storage_path, client_opts);
  KOLT_RETURN_IF_NULL(channel_factory, false);

  bak.channel_factory(channel_factory);
  bak.add_source(path);
  if (!bak.backup(name) && bak.err_code() != MTF::E_NO_FILES_BACKUPED) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to backup data to storage.\n")));
    return false;
  }

  K8S_SClient_Volume_Event_Handler::set_size += bak.set_size();
  K8S_SClient_Volume_Event_Handler::storage_size += bak.set_storage_size();
  K8S_SClient_Volume_Event_Handler::processed_size += bak.size();
  return true;
}

bool build_mtf_metadata(const MTF::Metadata& meta, const std::string& minor_resource_id, const Object& opts,
                        const Pool_Info& pool, ACE_INT64 seq, MTF_Backup& bak) {
  std::string pool_uuid;
  std::string host_uuid;
  std::string uuid;
  if (!meta.get_pool_uuid(pool_uuid) || !meta.get_host_uuid(host_uuid) || !meta.get_uuid(uuid)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get pool_uuid, host_uuid or set uuid")));
    return false;
  }

  MTF_COMPRESSION_TYPE compression = 0;
  int compression_level = 0;
  size_t channel_num = 0;
  try {
    json_spirit::extract_or_throw(opts)("compression", compression)("compression_level", compression_level)(
        "channel_num", channel_num);
  } catch (const std::exception& error) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to extract backup options, err %s.\n"), error.what()));
    return false;
  }

  bak.pool_uuid(pool_uuid);
  bak.host_uuid(host_uuid);
  bak.minor_resource_id(minor_resource_id);
  bak.uuid(uuid);
  bak.incremental(false);
  bak.compression(compression);
  bak.compression_level(compression_level);
  bak.channel_num(channel_num);
  bak.seq(static_cast<ACE_UINT32>(seq) - 1U);

  if (is_dedup_uri(pool.url.c_str())) {
    // Such a store can only find equal data in what is not compressed yet, so its client compresses.
    bak.extra_client_io_opts().compression_method = mtf_to_compression(compression);
    bak.extra_client_io_opts().compression_level = compression_level;
    bak.compression(0);
    bak.compression_level(0);
  }
  return true;
}
