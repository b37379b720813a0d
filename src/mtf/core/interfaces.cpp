// What the interfaces do where nobody overrides them and no filesystem is needed.
#include <algorithm>
#include <cerrno>

#include "mtf/core/backup_callback.h"
#include "mtf/core/byte_sink.h"
#include "mtf/core/byte_source.h"
#include "mtf/core/event_handler.h"
#include "mtf/core/path_converter.h"
#include "mtf/core/restore_callback.h"
#include "mtf/core/source_lister.h"

namespace MTF {

Byte_Sink::~Byte_Sink() = default;
Byte_Source::~Byte_Source() = default;
Event_Handler::~Event_Handler() = default;
IBackup_Callback::~IBackup_Callback() = default;
IBackup_Callback_Factory::~IBackup_Callback_Factory() = default;
IFile_Reader::~IFile_Reader() = default;
IFile_Writer::~IFile_Writer() = default;
IPath_Converter::~IPath_Converter() = default;
IRestore_Callback::~IRestore_Callback() = default;
IRestore_Callback_Factory::~IRestore_Callback_Factory() = default;
ISource_Lister::~ISource_Lister() = default;

int Event_Handler::notify_event(int, const char*) {
  return 0;
}
int Event_Handler::handle_progress(int, ACE_UINT64, ACE_UINT64, ACE_UINT64) {
  return 0;
}
bool Event_Handler::canceling() {
  return false;
}
bool Event_Handler::pausing() {
  return false;
}

Error_Code IFile_Reader::handle_file_blk(File_Blk&, unsigned long&, Callback_Stat&) {
  return E_OK;
}

bool IFile_Reader::next_data(ACE_UINT64, ACE_UINT64&, ACE_UINT64&) {
  errno = ENOTSUP;
  return false;
}

ISource_Lister_var IBackup_Callback::make_source_lister(const source_entry&) {
  return ISource_Lister_var();
}
void IBackup_Callback::handle_source_entry_begin(const source_entry&) {}
void IBackup_Callback::handle_source_entry_end(const source_entry&, bool) {}
void IBackup_Callback::handle_source_produce_end() {}
ACE_UINT64 IBackup_Callback::file_count_one_percent() {
  return 1000;
}
int IBackup_Callback::max_file_count_percent() {
  return 99;
}

Error_Code File_Writer_Base::seek(unsigned long) {
  errno = ENOTSUP;
  return E_FAILED;
}

Error_Code File_Writer_Base::truncate(unsigned long) {
  errno = ENOTSUP;
  return E_FAILED;
}

Error_Code File_Writer_Base::flush() {
  return E_OK;
}

Error_Code File_Writer_Base::skip_to(ACE_UINT64) {
  errno = ENOTSUP;
  return E_FAILED;
}

bool IPath_Converter::convert_below(const std::string& path, std::string& base, std::string& below) const {
  std::string target;
  if (!convert(path, target)) return false;
  base = "/";
  below = target.substr(std::min(target.find_first_not_of('/'), target.size()));
  return true;
}

}  // namespace MTF
