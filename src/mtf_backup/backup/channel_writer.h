#pragma once

#include <memory>
#include <string>
#include <vector>

#include "client_io/client_io_base.h"
#include "mtf/core/backup_callback.h"
#include "mtf/core/set_writer.h"
#include "mtf_backup/backup/entry_collector.h"
#include "mtf_backup/backup/file_copier.h"
#include "mtf_backup/backup/work_batch.h"
#include "mtf_backup/run/anchored_dir.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/set/catalog_entry.h"
#include "mtf_backup/set/medium_writer.h"

namespace MTF_BACKUP {

/// What all channels of a backup have in common. Outlives them.
struct Backup_Job {
  const std::vector<Source>& sources;
  MTF::IBackup_Callback_Factory_var factory;
  MTF::Set_Header header;
  Run_State& state;
};

/**
 * One channel of a backup: reads the entries of its batches and writes them onto its medium. Those that are kept from
 * an older set go by as they are.
 *
 * A failure of the medium stops the run, as E_OPEN_MEDIA or E_WRITE_TO_STORAGE. An entry that cannot be read has a line
 * at LM_ERROR and is catalogued as skipped; one that vanished has a line at LM_WARNING and is left out; one that
 * changed while it was read has a line at LM_WARNING and is flagged. Threads: one at a time.
 */
class Channel_Writer {
 public:
  /// @param storage, workers  borrowed.
  Channel_Writer(const Backup_Job& job, Client_IO_Base& storage, const Medium_Id& id, int level,
                 Frame_Workers& workers);

  /// False here and below: the run is stopping.
  [[nodiscard]] bool open();
  [[nodiscard]] bool write(Work_Batch& batch, Batch_Result& result);
  /// Ends the medium and makes it durable.
  [[nodiscard]] bool finish();

  /// Empty before finish().
  const std::vector<Stored_Object>& objects() const { return medium_.objects(); }

 private:
  enum Outcome { SAVED, LEFT_OUT, STOPPED };

  void keep(Work_Item& item, Batch_Result& result);
  Outcome put(const Work_Item& item, Catalog_Entry& entry);
  bool enter(const Work_Item& item);
  bool read_link(const Work_Item& item, std::string& target);
  void read_xattrs(const Work_Item& item, MTF::Xattrs& attrs, Catalog_Entry& entry);
  Outcome put_file(const Work_Item& item, const MTF::Entry& on_medium, Catalog_Entry& entry);
  void check_read(const Work_Item& item, const File_Copy& copy, Catalog_Entry& entry);
  Outcome lost(const Work_Item& item, int error, Catalog_Entry& entry);
  bool fail(MTF::Error_Code code);
  std::string shown(const Work_Item& item) const;

  const Backup_Job& job_;
  const unsigned channel_;
  Medium_Writer medium_;
  MTF::Set_Writer writer_;
  File_Copier copier_;
  MTF::IBackup_Callback_var callback_;
  int64_t volume_ = -1;                           // source that the medium is in
  std::shared_ptr<const std::string> directory_;  // what dir_ shows
  int64_t directory_source_ = -1;
  Anchored_Dir dir_;
  bool moved_ = false;  // the last file read was not the one that was listed
};

}  // namespace MTF_BACKUP
