#pragma once

#include <memory>
#include <set>
#include <string>

#include "mtf/core/error_code.h"
#include "mtf/core/event_handler.h"
#include "mtf_backup/export/export_format.h"
#include "mtf_backup/export/file_sink.h"
#include "mtf_backup/mtf_export.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/set/catalog_reader.h"
#include "mtf_backup/set/commit_record.h"
#include "mtf_backup/set/entry_reader.h"
#include "mtf_backup/set/medium_set.h"

namespace MTF_BACKUP {

/// One export. Threads: one; the settings are borrowed.
class Export_Run {
 public:
  Export_Run(const Export_Settings& settings, MTF::Event_Handler_var handler);
  ~Export_Run();

  /// As MTF_Export::run().
  [[nodiscard]] MTF::Error_Code run(const std::string& dir);

  bool complete() const { return complete_; }
  uint64_t entries() const { return entries_; }
  uint64_t left_out() const { return left_out_; }
  uint64_t size() const { return sink_.offset(); }

 private:
  MTF::Error_Code find_set(const std::string& dir);
  MTF::Error_Code write_set(const std::string& dir);
  void write(Catalog_Reader& catalog, Medium_Set& media);
  void write_entries(Catalog_Reader& catalog, Entry_Reader& reader);
  bool write_entry(const Catalog_Entry& entry, Entry_Reader& reader);
  bool find_damage(const Catalog_Entry& entry, Entry_Reader& reader, Export_Entry& exported);
  bool find_extents(const Catalog_Entry& entry, Entry_Reader& reader, Export_Entry& exported);
  bool put(bool written);
  bool leave_out(const Catalog_Entry& entry, const char* why);
  bool leave_out_damaged(const Catalog_Entry& entry);
  void note_left_out(const Catalog_Entry& entry);
  std::string shown(const Catalog_Entry& entry) const;

  const Export_Settings& settings_;
  MTF::Event_Handler_var handler_;
  File_Sink sink_;
  std::unique_ptr<Export_Format> format_;
  Run_State state_;
  std::shared_ptr<Client_IO_Base> storage_;
  Commit_Record record_;
  bool has_source_ = false;
  uint32_t source_ = 0;
  bool complete_ = false;
  bool damaged_ = false;
  uint64_t entries_ = 0;
  uint64_t left_out_ = 0;
  std::set<std::string> lost_names_;  // paths in the set of entries that were left out and have further names
};

}  // namespace MTF_BACKUP
