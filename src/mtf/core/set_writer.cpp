#include "mtf/core/set_writer.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "ace/Log_Msg.h"
#include "kolt/utf8.h"
#include "mtf/core/block.h"
#include "mtf/core/byte_sink.h"
#include "mtf/core/little_endian.h"
#include "mtf/core/own_streams.h"
#include "mtf/core/text.h"

namespace MTF {

namespace {

String_Type string_type(std::string_view text) {
  return kolt::is_utf8(text) ? STR_UTF16 : STR_BYTES;
}

/// Of one block: UTF-16 only where all its texts allow it.
String_Type string_type(std::string_view one, std::string_view other) {
  return kolt::is_utf8(one) ? string_type(other) : STR_BYTES;
}

std::string_view parent_path(std::string_view path) {
  const size_t separator = path.rfind('/');
  return separator == std::string_view::npos ? std::string_view() : path.substr(0, separator);
}

std::string_view base_name(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

/// The format's form of a directory: NUL behind every component, and one alone for the root.
std::string directory_name(std::string_view path) {
  std::string name(path);
  std::replace(name.begin(), name.end(), '/', '\0');
  name += '\0';
  return name;
}

/// Dates of a directory or file: modified, created, backed up, accessed. A creation date is not known.
void set_dates(Block& block, const Entry_Stat& st, int64_t now) {
  block.set_date(56, st.mtime.sec);
  block.set_date(66, now);
  block.set_date(71, st.atime.sec);
}

// Of the 1024 bytes of a block, what its longest text may take so that the others find room.
constexpr size_t first_text_max = 600;
constexpr size_t text_max = 256;

}  // namespace

Set_Writer::Set_Writer(Byte_Sink& sink) : out_(sink) {}

bool Set_Writer::in_order(bool allowed, const char* call) {
  if (allowed) return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Set writer: %C makes no sense here.\n"), call));
  errno = EINVAL;
  return false;
}

bool Set_Writer::in_limits(const Entry& entry) {
  const size_t text = std::max({entry.path.size(), entry.link_target.size(), entry.hard_link_target.size()});
  return in_order(text <= entry_text_max && xattrs_size(entry.xattrs) <= entry_xattrs_max, "an entry of that size");
}

bool Set_Writer::begin_block(Block& block) {
  if (!in_order(control_block_id_ < std::numeric_limits<uint32_t>::max(), "one more block")) return false;
  offset_ = out_.offset();
  streams_ = 0;
  block.set64(at_logical_address, (offset_ - set_start_) / block_size);
  block.set32(at_control_block_id, ++control_block_id_);
  return out_.put(block.finish());
}

bool Set_Writer::begin(const Set_Header& header) {
  if (!in_order(state_ == NEW && out_.offset() == 0, "begin")) return false;
  state_ = BEGUN;
  time_ = header.time;
  incremental_ = header.incremental;

  Block tape(block_tape, tape_end);
  tape.string_type(string_type(header.media_name, header.software_name));
  tape.set32(52, header.family_id);
  tape.set32(56, tape_soft_filemarks);
  tape.set16(60, 1);  // first medium of its family
  tape.set16(64, block_size / 512);
  tape.cut_text(68, header.media_name, first_text_max);
  tape.cut_text(80, header.software_name, text_max);
  tape.set16(84, block_size);
  tape.set_date(88, header.time);
  tape.set8(93, 1);
  if (!out_.put(tape.finish()) || !out_.pad() || !filemark()) return false;

  set_start_ = out_.offset();
  Block set(block_sset, sset_end);
  set.string_type(string_type(header.set_name, header.user));
  set.set32(52, incremental_ ? set_incremental : set_normal);
  set.set16(62, 1);  // first set of the family
  set.cut_text(64, header.set_name, first_text_max);
  set.cut_text(76, header.user, text_max);
  set.set64(80, set_start_ / block_size);
  set.set_date(88, header.time);
  set.set8(93, 1);
  return out_.put(set.finish()) && out_.pad();
}

bool Set_Writer::volume(const Volume& volume) {
  if (!in_order((state_ == BEGUN || state_ == IN_VOLUME) && volume.source_path.size() <= entry_text_max, "volume"))
    return false;
  state_ = IN_VOLUME;
  has_directory_ = false;

  Block block(block_volb, volb_end);
  const std::string_view path = volume.source_path;
  block.string_type(string_type(path, volume.machine));
  block.set32(52, volume_os_specific);
  const size_t stored_size = block.string_type() == STR_UTF16 ? 2 * path.size() : path.size();
  block.cut_text(56, path, first_text_max);
  block.cut_text(64, volume.machine, text_max);
  block.set_date(68, volume.time);
  if (!begin_block(block)) return false;
  if (stored_size > first_text_max && (!out_.stream(stream_unix_name, 0, path.size()) || !out_.put(path))) return false;
  return out_.pad();
}

bool Set_Writer::directory(const Entry& entry) {
  return in_order(state_ == IN_VOLUME, "directory") && in_limits(entry) && put_directory(entry.path, &entry);
}

bool Set_Writer::put_directory(std::string_view path, const Entry* entry) {
  const std::string name = directory_name(path);
  Block block(block_dirb, dirb_end);
  const String_Type type = string_type(name);
  block.string_type(type);
  if (entry != nullptr) set_dates(block, entry->stat, time_);
  block.set32(76, ++directory_id_);
  const bool fits = block.text(80, name);
  if (!fits) block.set32(52, name_in_stream);
  if (!begin_block(block)) return false;
  if (!fits && !put_name_stream(stream_path_name, name, type)) return false;
  if (entry != nullptr && !put_own_streams(*entry)) return false;
  directory_ = path;
  has_directory_ = true;
  return out_.pad();
}

bool Set_Writer::put_name_stream(uint32_t id, std::string_view name, String_Type type) {
  std::string utf16;
  if (type == STR_UTF16) {
    utf16.resize(2 * name.size());
    utf16.resize(put_utf16(name, utf16.data()));
    name = utf16;
  }
  ++streams_;
  return out_.stream(id, 0, name.size()) && out_.put(name);
}

bool Set_Writer::put_own_streams(const Entry& entry) {
  char stat[unix_stat_size];
  put_unix_stat(stat, entry.stat);
  ++streams_;
  if (!out_.stream(stream_unix_stat, 0, sizeof stat) || !out_.put({stat, sizeof stat})) return false;
  const auto text = [this](uint32_t id, const std::string& bytes) {
    if (bytes.empty()) return true;
    ++streams_;
    return out_.stream(id, 0, bytes.size()) && out_.put(bytes);
  };
  std::string attrs;
  if (!entry.xattrs.empty()) put_xattrs(attrs, entry.xattrs);
  return text(stream_unix_link, entry.link_target) && text(stream_unix_hard_link, entry.hard_link_target) &&
         text(stream_unix_xattrs, attrs);
}

/// The block of a file, with all streams but the data.
bool Set_Writer::put_file_block(const Entry& entry, uint64_t size) {
  if (!in_limits(entry)) return false;
  const std::string_view directory = parent_path(entry.path);
  if ((!has_directory_ || directory_ != directory) && !put_directory(directory, nullptr)) return false;
  state_ = IN_FILE;

  const std::string_view name = base_name(entry.path);
  Block block(block_file, file_end);
  const String_Type type = string_type(name);
  block.string_type(type);
  block.set64(at_displayable_size, size);
  set_dates(block, entry.stat, time_);
  block.set32(76, directory_id_);
  block.set32(80, ++file_id_);
  const bool fits = block.text(84, name);
  if (!fits) block.set32(52, name_in_stream);
  if (!begin_block(block)) return false;
  if (!fits && !put_name_stream(stream_file_name, name, type)) return false;
  return put_own_streams(entry);
}

bool Set_Writer::begin_file(const Entry& entry, uint64_t size) {
  if (!in_order(state_ == IN_VOLUME, "begin_file") || !put_file_block(entry, size)) return false;
  missing_ = size;
  sparse_ = false;
  checksum_.reset();
  has_data_ = size > 0 || (S_ISREG(entry.stat.mode) && entry.hard_link_target.empty());
  if (!has_data_) return true;
  ++streams_;
  return out_.stream(stream_data, stream_checksummed, size);
}

bool Set_Writer::begin_sparse_file(const Entry& entry, uint64_t size) {
  if (!in_order(state_ == IN_VOLUME, "begin_sparse_file") || !put_file_block(entry, size)) return false;
  missing_ = 0;
  sparse_ = true;
  has_data_ = true;
  extent_end_ = 0;
  file_size_ = size;
  ++streams_;
  return out_.stream(stream_data, 0, 0, stream_sparse);
}

bool Set_Writer::begin_extent(uint64_t at, uint64_t length) {
  const bool inside = at >= extent_end_ && at < file_size_ && length > 0 && length <= file_size_ - at;
  if (!in_order(state_ == IN_FILE && sparse_ && missing_ == 0 && inside, "begin_extent")) return false;
  missing_ = length;
  extent_end_ = at + length;
  char place[8];
  put_le(place, at);
  return out_.stream(stream_extent, 0, sizeof place + length) && out_.put({place, sizeof place});
}

bool Set_Writer::room(char*& at, size_t& avail) {
  if (!in_order(state_ == IN_FILE, "room") || !out_.room(at, avail)) return false;
  avail = static_cast<size_t>(std::min<uint64_t>(avail, missing_));
  room_ = at;
  return true;
}

bool Set_Writer::filled(size_t n) {
  if (!in_order(state_ == IN_FILE && n <= missing_ && (n == 0 || room_ != nullptr), "filled")) return false;
  if (n == 0) return true;
  checksum_.add(room_, n);
  room_ = nullptr;
  missing_ -= n;
  return out_.filled(n);
}

bool Set_Writer::end_file(File_Damage damage, uint64_t valid_size) {
  if (!in_order(state_ == IN_FILE && missing_ == 0 && (damage == FD_NONE || has_data_), "end_file")) return false;
  state_ = IN_VOLUME;
  if (has_data_ && !sparse_) {
    char sum[4];
    put_le(sum, checksum_.value());
    if (!out_.stream(stream_checksum, 0, sizeof sum) || !out_.put({sum, sizeof sum})) return false;
  }
  if (damage != FD_NONE && !out_.stream(stream_corrupt, 0, 0)) return false;
  return out_.pad() && (damage == FD_NONE || put_damage(damage, valid_size));
}

bool Set_Writer::put_damage(File_Damage damage, uint64_t valid_size) {
  const uint64_t file_offset = offset_;
  Block block(block_cfil, cfil_end);
  block.set32(52, damage == FD_LENGTH_CHANGED ? damage_length_changed : damage_unreadable);
  block.set64(64, valid_size);
  block.set16(72, streams_);  // the data stream is the last one counted
  ++corrupt_files_;
  const bool ok = begin_block(block) && out_.pad();
  offset_ = file_offset;
  return ok;
}

bool Set_Writer::end() {
  if (!in_order(state_ == BEGUN || state_ == IN_VOLUME, "end")) return false;
  state_ = ENDED;
  if (!filemark()) return false;
  Block block(block_eset, eset_end);
  block.set32(52, incremental_ ? set_incremental : set_normal);
  block.set32(56, corrupt_files_);
  block.set16(78, 1);
  block.set_date(80, time_);
  block.set32(at_control_block_id, ++control_block_id_);
  return out_.put(block.finish()) && out_.pad() && filemark() && out_.flush();
}

bool Set_Writer::filemark() {
  const uint64_t number = out_.offset() / block_size;
  Block block(block_sfmb, sfmb_end + 4 * filemark_blocks_.size());
  block.set64(at_logical_address, number);
  block.set32(at_control_block_id, ++filemarks_);
  block.set32(52, (block_size - sfmb_end) / 4);
  block.set32(56, static_cast<uint32_t>(filemark_blocks_.size()));
  for (size_t i = 0; i < filemark_blocks_.size(); ++i) block.set32(sfmb_end + 4 * i, filemark_blocks_[i]);
  // A number that outgrows its field is left out: the list only helps readers that go backwards.
  if (number <= std::numeric_limits<uint32_t>::max())
    filemark_blocks_.insert(filemark_blocks_.begin(), static_cast<uint32_t>(number));
  return out_.put(block.finish_filemark());
}

}  // namespace MTF
