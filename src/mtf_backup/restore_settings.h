#pragma once

#include <string>

#include "client_io/client_io_base.h"
#include "json_spirit/json_spirit_value.h"
#include "mtf/core/path_converter.h"
#include "mtf/core/restore_callback.h"
#include "mtf_backup/channel_factory.h"

namespace MTF_BACKUP {

/// What a restore is told before it runs. Plain values: nothing is checked before restore() is called.
struct Restore_Settings {
  std::string definition_uuid;
  std::string backup_minor_resource_id;
  std::string target_location;
  MTF::IRestore_Callback_Factory_var callback_factory;
  const json_spirit::Array* restore_select = nullptr;  ///< borrowed; null: everything
  std::string pool_uuid;
  bool with_setting = false;
  std::string backup_host_uuid;
  ACE_UINT32 incarnation = 0;  ///< 0: the newest
  ACE_UINT32 seq = 0;
  size_t channel_num = 0;  ///< 0 means one
  size_t concurrent = 0;   ///< files restored at the same time; 0 leaves it to channel_num
  MTF::IPath_Converter_var path_converter;
  bool path_converter_missing = false;  ///< there should be one, and nothing is restored without it
  Client_IO_Base::Options extra_client_io_opts;
  Channel_Factory_var channel_factory;
};

}  // namespace MTF_BACKUP
