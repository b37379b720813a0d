#pragma once

#include <string>
#include <utility>
#include <vector>

#include "mtf_backup/export/export_format.h"
#include "mtf_backup/export/file_sink.h"

namespace MTF_BACKUP {

/// A pax archive. Paths are those in the set, without the '/' in front; extended attributes and holes stand as GNU tar
/// writes them.
class Tar_Format : public Export_Format {
 public:
  explicit Tar_Format(File_Sink& sink) : sink_(sink) {}

  bool begin(const Commit_Record&) override { return true; }
  bool source(const std::string& path) override;
  bool takes(const MTF::Entry& entry) const override;
  bool entry(const Export_Entry& entry) override;
  bool data(uint64_t at, std::string_view bytes) override;
  bool end_entry() override;
  bool end() override;

 private:
  /// Keywords of an extended header with their values.
  typedef std::vector<std::pair<std::string, std::string>> Records;

  /// The fields of a header.
  struct Header {
    std::string name;
    std::string link;
    char type = '0';
    uint64_t size = 0;
    const MTF::Entry_Stat* stat = nullptr;
  };

  bool put_header(const Header& header);
  bool put_extended(const std::string& name, const Records& records);
  bool pad();

  File_Sink& sink_;
  std::string source_;
};

}  // namespace MTF_BACKUP
