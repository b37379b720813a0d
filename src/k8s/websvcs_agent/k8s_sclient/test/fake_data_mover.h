#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "kolt/pool_info.h"
#include "mtf/core/error_code.h"
#include "mtf/core/event_handler.h"
#include "mtf_backup/backup_settings.h"
#include "mtf_backup/restore_settings.h"

/// What the data mover does in these tests: each run goes as it was told to, and what it was given is written down.
struct Fake_Data_Mover {
  struct Run {
    bool ok = true;
    MTF::Error_Code code = MTF::E_OK;
    ACE_UINT64 size = 0;
    ACE_UINT64 set_size = 0;
    ACE_UINT64 storage_size = 0;
    /// Called in mid-run.
    std::function<void(MTF::Event_Handler&)> during = {};
  };
  struct Backup {
    std::string name;
    MTF_BACKUP::Backup_Settings settings;
    json_spirit::Object meta;
    bool own_log_callback;
  };
  struct Restore {
    std::string name;
    MTF_BACKUP::Restore_Settings settings;
    json_spirit::Array selection;
    bool own_log_callback;
  };
  /// How a call of MTF_Restore::path_converter() found the restore.
  struct Converter {
    MTF_BACKUP::Restore_Settings settings;
    bool empty;
    bool before_channels;
  };
  struct Channels {
    std::string pool_url;
    std::string uri_path;
    Client_IO_Base::Options options;
  };

  std::deque<Run> runs;      ///< of backups or restores to come; when there is none left a run moves nothing
  bool no_channels = false;  ///< whether no channel factory can be made

  size_t constructed = 0;    ///< how many MTF_Backup or MTF_Restore were made
  json_spirit::Object meta;  ///< what the last MTF_Backup was constructed with
  std::vector<Backup> backups;
  std::vector<Restore> restores;
  std::vector<Converter> converters;
  std::vector<Channels> channels;

  static Fake_Data_Mover& instance();
  static void reset() { instance() = Fake_Data_Mover(); }

  Run next_run();
};

/// Every code that a run can end with, but for @a tolerated.
inline std::vector<MTF::Error_Code> error_codes_but(MTF::Error_Code tolerated) {
  std::vector<MTF::Error_Code> codes;
  for (int code = MTF::E_FAILED; code <= MTF::E_NO_FILES_RESTORED; ++code)
    if (code != tolerated) codes.push_back(static_cast<MTF::Error_Code>(code));
  return codes;
}
