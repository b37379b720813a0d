#pragma once

#include "mtf/core/set_writer.h"
#include "mtf_backup/export/export_format.h"
#include "mtf_backup/export/file_sink.h"

namespace MTF_BACKUP {

/// One medium with all of a set, as MTF::Set_Writer writes it.
class MTF_Format : public Export_Format {
 public:
  explicit MTF_Format(File_Sink& sink) : sink_(sink), writer_(sink) {}

  bool begin(const Commit_Record& record) override;
  bool source(const std::string& path) override;
  bool takes(const MTF::Entry&) const override { return true; }
  bool entry(const Export_Entry& entry) override;
  bool data(uint64_t at, std::string_view bytes) override;
  bool end_entry() override;
  bool end() override { return writer_.end() && sink_.flush(); }

 private:
  bool put(std::string_view bytes);

  File_Sink& sink_;
  MTF::Set_Writer writer_;
  MTF::Set_Header header_;
  bool directory_ = false;  // the current entry is one
  std::vector<Extent> extents_;
  size_t next_extent_ = 0;
  MTF::File_Damage damage_ = MTF::FD_NONE;
  uint64_t valid_size_ = 0;
};

}  // namespace MTF_BACKUP
