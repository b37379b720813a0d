#pragma once

#include <memory>
#include <string>

#include "kolt/export.h"
#include "mtf/core/cat_summary.h"
#include "mtf/core/error_code.h"
#include "mtf/core/event_handler.h"
#include "mtf/core/metadata.h"
#include "mtf_backup/backup_settings.h"
#include "mtf_backup/log_msg_callback.h"

/**
 * Writes directories as one set into a storage pool.
 *
 * Life: the setters, each storing its value and nothing more; add_source() per directory; backup() once; then the
 * readers of the result. Ownership: shares the event handler, the callbacks and the channels. Threads: one at a time.
 * During backup() threads of the run call the event handler (always the same thread) and the callbacks (several
 * threads, each with an object of its own from the factory).
 */
class TESSARIN_API MTF_Backup {
 public:
  /// The ids in @a metadata are the first values of pool_uuid(), host_uuid() and uuid(). Nothing else is kept of it.
  MTF_Backup(MTF::Event_Handler_var event_handler, MTF::Metadata& metadata, ACE_Log_Msg_Callback_var log_callback);
  ~MTF_Backup();
  MTF_Backup(const MTF_Backup&) = delete;
  MTF_Backup& operator=(const MTF_Backup&) = delete;

  void pool_uuid(const std::string& value) { settings_.pool_uuid = value; }
  void host_uuid(const std::string& value) { settings_.host_uuid = value; }
  void minor_resource_id(const std::string& value) { settings_.minor_resource_id = value; }
  void uuid(const std::string& value) { settings_.uuid = value; }
  /// Whether the set holds only what changed since the newest one of the number seq(). Where there is none to build on
  /// backup() writes a full set, after one line at LM_WARNING that says why.
  void incremental(bool value) { settings_.incremental = value; }
  /// Numbers of Compression_Method. 0 with level 0 means none.
  void compression(MTF_COMPRESSION_TYPE value) { settings_.compression = value; }
  void compression_level(int value) { settings_.compression_level = value; }
  /// Number of media that are written side by side; 0 means one, more than 64 are cut to 64 with a warning.
  void channel_num(size_t value) { settings_.channel_num = value; }
  /// Number of the last set: the new one gets the next, modulo 2^32.
  void seq(ACE_UINT32 value) { settings_.seq = value; }
  void callback_factory(MTF::IBackup_Callback_Factory_var value) { settings_.callback_factory = value; }
  /// The options of the storage clients, for reading and for changing.
  Client_IO_Base::Options& extra_client_io_opts() { return settings_.extra_client_io_opts; }
  void channel_factory(MTF_BACKUP::Channel_Factory_var value) { settings_.channel_factory = value; }
  /// Whether to read ahead even where no thread has waited for a disk or a file server.
  void read_ahead_always(bool value) { settings_.read_ahead_always = value; }
  void add_source(const std::string& path) { settings_.sources.push_back(path); }

  /// What the setters have stored.
  const MTF_BACKUP::Backup_Settings& settings() const { return settings_; }

  /**
   * Runs the whole backup; the set appears in the pool under @a name at the very end, as a whole or not at all.
   *
   * @retval true   every entry of every source is in the set; err_code() is E_OK.
   * @retval false  err_code() tells why, after at least one line at LM_ERROR (a cancel and an empty source have none):
   *
   * - E_NO_FILES_BACKUPED: the sources hold nothing; a set that lists their roots only is in the pool.
   * - E_END_WITH_SKIPPED_FILES: some entries, or the extended attributes of some, could not be read: each has a line at
   *   LM_ERROR and stands in the set's catalog with the reason; all else is in the set, and the set is in the pool.
   * - E_GET_SOURCE_DATA: a source is no directory or cannot be opened. No set.
   * - E_OPEN_MEDIA, E_WRITE_TO_STORAGE, E_ADD_TO_CATALOG: the storage failed. No set.
   * - E_FAILED: refused before anything was written, cancelled, or out of memory or threads. No set.
   *
   * A cancel is seen within a second or two, also while the storage is waited for; the context of the calling thread's
   * task is told (set_canceled). One that comes too late for the commit record changes nothing: the set stands, and the
   * run is the success that it would have been.
   */
  [[nodiscard]] bool backup(const std::string& name);

  /// Of the last run; E_OK before the first.
  MTF::Error_Code err_code() const { return err_code_; }

  /// Bytes of all entries read: sizes of all non-directories, each hard link name counted. 0 before the first run.
  ACE_UINT64 size() const { return summary_.total_size; }
  /// Bytes of the entries that this set itself holds, counted as for size(). 0 before the first run.
  ACE_UINT64 set_size() const { return summary_.inc_size; }
  /// Bytes of all objects that the set takes in the pool. 0 before the first run.
  ACE_UINT64 set_storage_size() const { return summary_.storage_size; }

 private:
  MTF::Event_Handler_var event_handler_;
  ACE_Log_Msg_Callback_var log_callback_;
  MTF_BACKUP::Backup_Settings settings_;
  MTF::Cat_Summary summary_;
  MTF::Error_Code err_code_;
};
