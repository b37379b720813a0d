#pragma once

#include <memory>
#include <string>

#include "kolt/export.h"
#include "mtf/core/error_code.h"
#include "mtf/core/event_handler.h"
#include "mtf_backup/log_msg_callback.h"
#include "mtf_backup/restore_settings.h"

namespace MTF_BACKUP {
class Restore_Run;
}

/**
 * Brings one set of a storage pool back.
 *
 * Life: the setters, each storing its value and nothing more; restore() once; then the readers of the result.
 * Ownership: shares the event handler, the callbacks, the path converter and the channels. The array given to
 * restore_select() is borrowed and outlives the run.
 * Threads: one at a time. During restore() threads of the run call the event handler (always the same thread) and the
 * callbacks (several threads, each with an object of its own from the factory).
 */
class TESSARIN_API MTF_Restore {
 public:
  MTF_Restore(MTF::Event_Handler_var event_handler, ACE_Log_Msg_Callback_var log_callback);
  ~MTF_Restore();
  MTF_Restore(const MTF_Restore&) = delete;
  MTF_Restore& operator=(const MTF_Restore&) = delete;

  void definition_uuid(const std::string& value) { settings_.definition_uuid = value; }
  void backup_minor_resource_id(const std::string& value) { settings_.backup_minor_resource_id = value; }
  /// Root of the restore: targets that the path converter names lie below it.
  void target_location(const std::string& value) { settings_.target_location = value; }
  void callback_factory(MTF::IRestore_Callback_Factory_var value) { settings_.callback_factory = value; }
  /// Objects with `dir`, a path in the set: what lies at or below one of them is restored. Null selects everything.
  void restore_select(const json_spirit::Array* value) { settings_.restore_select = value; }
  void pool_uuid(const std::string& value, bool with_setting) {
    settings_.pool_uuid = value;
    settings_.with_setting = with_setting;
  }
  void backup_host_uuid(const std::string& value) { settings_.backup_host_uuid = value; }
  /// 0 means the newest set written under seq(); otherwise the exact one, counted from 1.
  void incarnation(ACE_UINT32 value) { settings_.incarnation = value; }
  void seq(ACE_UINT32 value) { settings_.seq = value; }
  void channel_num(size_t value) { settings_.channel_num = value; }
  /// Files restored at the same time.
  void concurrent(size_t value) { settings_.concurrent = value; }
  /// Maps paths in the set to paths here. An empty value is told at LM_EMERGENCY and leaves the old converter in place;
  /// where there is none, restore() is refused. If this is never called, paths stay as they are.
  void path_converter(MTF::IPath_Converter_var val);
  /// The options of the storage clients, for reading and for changing.
  Client_IO_Base::Options& extra_client_io_opts() { return settings_.extra_client_io_opts; }
  void channel_factory(MTF_BACKUP::Channel_Factory_var value) { settings_.channel_factory = value; }

  /// What the setters have stored.
  const MTF_BACKUP::Restore_Settings& settings() const { return settings_; }

  /**
   * Runs the whole restore. A file appears under its final name only when all of its bytes were read and found right.
   * At the end it is waited until the target's filesystem has written everything to disk.
   *
   * Every restored entry is looked at again. Each that is not as it was backed up, because the system refuses its
   * owner, mode, time or attributes, the filesystem has no place for them, or the set lacks some of its data or its
   * attributes, has a line at LM_ERROR: up to 1,000 of them, those that lack content not counted, up to 10,000 that do,
   * and then one with the number of the others.
   *
   * What the backup could not read is not in the set. The backup has told it, and it is no failure of the restore,
   * which would else keep the rest of the job from being restored; see missing_count(). An entry that the set does not
   * have at all has a line at LM_WARNING; a directory is made with nothing in it.
   *
   * @retval true   every selected entry that the set has and a path rule reaches is in place with all that the set has
   * of it; err_code() is E_OK.
   * @retval false  err_code() tells why, after at least one line at LM_ERROR (a cancel and an empty selection have
   * none):
   *
   * - E_NO_FILES_RESTORED: nothing in the set was selected.
   * - E_NOT_FOUND: there is no such set.
   * - E_CORRUPT: the set's description or some of its data is damaged; files that it hit are left out.
   * - E_END_WITH_SKIPPED_FILES: some entries could not be put in place, each with a line at LM_ERROR, or lack extended
   *   attributes that the set has, access lists and file capabilities among them. A wrong owner, mode or time alone is
   *   no failure.
   * - E_DOWNLOAD_CAT_ERROR, E_OPEN_MEDIA: the storage failed.
   * - E_FAILED: refused, cancelled, out of memory or threads, or the target did not reach its disk.
   *
   * Whatever was restored before a failure stays. A cancel is seen within a second, also while the storage is waited
   * for; the context of the calling thread's task is told (set_canceled).
   */
  [[nodiscard]] bool restore(const std::string& name);

  /// Of the last run; E_OK before the first.
  MTF::Error_Code err_code() const;

  /// Bytes of the selected entries. Without a run: a line at LM_EMERGENCY and all bits set.
  ACE_UINT64 size() const;
  /// Bytes of the selected entries that came from this set itself. Without a run: as size().
  ACE_UINT64 set_size() const;
  /// Bytes of the entries that are in place; 0 without a run.
  ACE_UINT64 restored_size() const;
  /// Selected entries that are not in the set, or not in all, since the backup could not read them; 0 without a run.
  ACE_UINT64 missing_count() const;

 private:
  MTF::Event_Handler_var event_handler_;
  ACE_Log_Msg_Callback_var log_callback_;
  MTF_BACKUP::Restore_Settings settings_;
  std::unique_ptr<MTF_BACKUP::Restore_Run> restore_;
  MTF::Error_Code err_code_;
};
