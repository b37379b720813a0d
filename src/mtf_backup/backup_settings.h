#pragma once

#include <string>
#include <vector>

#include "ace/Basic_Types.h"
#include "client_io/client_io_base.h"
#include "kolt/compression.h"
#include "mtf/core/backup_callback.h"
#include "mtf_backup/channel_factory.h"

/// A compression number as requests and sets carry it: those of Compression_Method.
typedef ACE_UINT16 MTF_COMPRESSION_TYPE;

namespace MTF_BACKUP {

/// What a backup is told before it runs. Plain values: nothing is checked before backup() is called.
struct Backup_Settings {
  std::string pool_uuid;
  std::string host_uuid;
  std::string minor_resource_id;
  std::string uuid;
  bool incremental = false;
  MTF_COMPRESSION_TYPE compression = 0;
  int compression_level = 0;
  size_t channel_num = 0;  ///< 0 means one
  ACE_UINT32 seq = 0;      ///< number of the last set; the new one gets the next, modulo 2^32
  MTF::IBackup_Callback_Factory_var callback_factory;
  Client_IO_Base::Options extra_client_io_opts;
  Channel_Factory_var channel_factory;
  std::vector<std::string> sources;
  bool read_ahead_always = false;  ///< reads ahead even where no thread waits for a disk
};

}  // namespace MTF_BACKUP
