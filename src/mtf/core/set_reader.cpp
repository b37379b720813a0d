#include "mtf/core/set_reader.h"

#include <algorithm>
#include <limits>

#include "mtf/core/layout.h"
#include "mtf/core/little_endian.h"
#include "mtf/core/own_streams.h"

namespace MTF {

namespace {

/// A path in UTF-16, with the NUL behind a directory's.
constexpr size_t name_stream_max = 2 * (entry_text_max + 1);

/// Forms of a data stream whose bytes are not the file's: in pieces, encrypted, compressed.
constexpr uint16_t unread_media_attributes = 1u << 0 | 1u << 1 | 1u << 3 | 1u << 4;

bool plain_name(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find_first_of(std::string_view("/\0", 2)) == name.npos;
}

/// Makes a path of a directory's name, in which a NUL ends each component. False where a component could lead
/// elsewhere.
bool directory_path(std::string& name) {
  if (name.empty() || name.back() != '\0') return false;
  name.pop_back();
  bool plain = true;
  for (size_t start = 0; start < name.size() && plain;) {
    const size_t end = std::min(name.find('\0', start), name.size());
    plain = plain_name(std::string_view(name).substr(start, end - start)) && end + 1 != name.size();
    start = end + 1;
  }
  std::replace(name.begin(), name.end(), '\0', '/');
  return plain;
}

}  // namespace

bool Set_Reader::read_header(Set_Header& header) {
  reading_ = false;
  header = Set_Header();
  if (!blocks_.block(0)) return false;
  if (blocks_.type() != block_tape) return blocks_.fail(0, "no medium of this format");
  header.family_id = blocks_.get32(52);
  if (!blocks_.text(68, header.media_name) || !blocks_.text(80, header.software_name)) return false;
  do {
    if (!skip_streams(blocks_.streams_at()) || !blocks_.block(position_)) return false;
  } while (blocks_.type() != block_sset);
  header.incremental = (blocks_.get32(52) & set_incremental) != 0;
  header.time = blocks_.date(88);
  if (!blocks_.text(64, header.set_name) || !blocks_.text(76, header.user)) return false;
  if (!skip_streams(blocks_.streams_at())) return false;
  directory_.clear();
  bad_directory_ = false;
  reading_ = true;
  return true;
}

/// Moves position_ behind the streams of a block, the first of which begins at @a at.
bool Set_Reader::skip_streams(uint64_t at) {
  position_ = at;
  if (blocks_.type() == block_sfmb) return true;  // has none
  File_Data from;
  from.offset = at;
  File_End end;
  if (!read_end(from, end)) return false;
  position_ = end.next_offset;
  return true;
}

bool Set_Reader::read_end(const File_Data& data, File_End& end) {
  end = File_End();
  Stream stream;
  for (uint64_t at = data.offset + data.size; stream.id != stream_pad; at = stream.end()) {
    if (!blocks_.stream(at, stream)) return false;
    if (stream.id == stream_corrupt) end.corrupt = true;
    if (stream.id != stream_checksum || end.has_checksum) continue;
    std::string sum;
    if (!blocks_.data(stream, sizeof end.checksum, sum)) return false;
    if (sum.size() != sizeof end.checksum) return blocks_.fail(stream.offset, "checksum of a wrong length");
    end.checksum = get_le<uint32_t>(sum.data());
    end.has_checksum = true;
  }
  end.next_offset = stream.end();
  return true;
}

bool Set_Reader::read_damage(const File_End& end, File_Damage& damage, uint64_t& valid_size) {
  damage = FD_NONE;
  valid_size = 0;
  if (!end.corrupt) return true;
  if (!blocks_.block(end.next_offset)) return false;
  if (blocks_.type() != block_cfil) return blocks_.fail(end.next_offset, "no note about the damaged file before");
  parse_damage(damage, valid_size);
  return true;
}

/// Of the current block.
void Set_Reader::parse_damage(File_Damage& damage, uint64_t& valid_size) const {
  damage = (blocks_.get32(52) & damage_length_changed) != 0 ? FD_LENGTH_CHANGED : FD_UNREADABLE;
  valid_size = blocks_.get64(64);
}

bool Set_Reader::read_extent(const File_Data& data, File_Extent& extent) {
  Stream stream;
  uint64_t at = extent.offset == 0 ? data.offset : extent.offset + extent.size;
  extent = File_Extent();
  for (; data.sparse; at = stream.end()) {
    if (!blocks_.stream(at, stream)) return false;
    if (stream.id != stream_extent) break;
    std::string place;
    Stream place_only = stream;
    place_only.length = std::min<uint64_t>(stream.length, sizeof extent.at);
    if (!blocks_.data(place_only, sizeof extent.at, place)) return false;
    if (place.size() != sizeof extent.at) return blocks_.fail(stream.offset, "extent without a place");
    extent.at = get_le<uint64_t>(place.data());
    extent.offset = stream.offset + place.size();
    extent.size = stream.length - place.size();
    if (extent.at > std::numeric_limits<int64_t>::max() - extent.size)
      return blocks_.fail(stream.offset, "impossible place of an extent");
    if (extent.size != 0) return true;
  }
  return true;
}

bool Set_Reader::next(Set_Item& item) {
  if (!reading_) return blocks_.fail(position_, "there is nothing more to read");
  item = Set_Item();
  reading_ = false;  // until all went well
  for (;;) {
    if (!blocks_.block(position_)) return false;
    item.offset = position_;
    switch (blocks_.type()) {
      case block_volb:
        item.type = Set_Item::VOLUME;
        return reading_ = next_volume(item.volume);
      case block_dirb:
      case block_file:
        return reading_ = next_entry(item);
      case block_cfil:
        item.type = Set_Item::DAMAGE;
        parse_damage(item.damage, item.valid_size);
        return reading_ = skip_streams(blocks_.streams_at());
      case block_eset:
        item.type = Set_Item::END;
        item.corrupt_files = blocks_.get32(56);
        return skip_streams(blocks_.streams_at());
      default:
        if (!skip_streams(blocks_.streams_at())) return false;
    }
  }
}

bool Set_Reader::next_volume(Volume& volume) {
  directory_.clear();
  bad_directory_ = false;
  volume.time = blocks_.date(68);
  if (!blocks_.text(56, volume.source_path) || !blocks_.text(64, volume.machine)) return false;
  Stream stream;
  if (!blocks_.stream(blocks_.streams_at(), stream)) return false;
  if (stream.id == stream_unix_name && !blocks_.data(stream, entry_text_max, volume.source_path)) return false;
  return skip_streams(blocks_.streams_at());
}

bool Set_Reader::next_entry(Set_Item& item) {
  const bool is_directory = blocks_.type() == block_dirb;
  if (!parse_entry(item.entry, item.data, item.bad_name)) return false;
  if (is_directory) {
    item.type = Set_Item::DIRECTORY;
    directory_ = item.entry.path;
    bad_directory_ = item.bad_name;
  } else {
    item.type = Set_Item::FILE;
    if (!directory_.empty()) item.entry.path.insert(0, directory_ + '/');
    item.bad_name = item.bad_name || bad_directory_;
  }
  File_End end;
  if (!read_end(item.data, end)) return false;
  position_ = end.next_offset;
  return true;
}

bool Set_Reader::read_entry(uint64_t offset, Entry& entry, File_Data& data) {
  if (!blocks_.block(offset)) return false;
  if (blocks_.type() != block_dirb && blocks_.type() != block_file)
    return blocks_.fail(offset, "no block of a directory or file");
  bool bad_name = false;
  if (!parse_entry(entry, data, bad_name)) return false;
  return !bad_name || blocks_.fail(offset, "a name that could lead elsewhere");
}

/// Reads the current block and its streams up to the data or, where there is none, up to the last one.
bool Set_Reader::parse_entry(Entry& entry, File_Data& data, bool& bad_name) {
  entry = Entry();
  entry.has_stat = false;
  data = File_Data();
  data.file_size = blocks_.get64(at_displayable_size);
  const bool is_directory = blocks_.type() == block_dirb;
  if (!blocks_.text(is_directory ? 80 : 84, entry.path)) return false;
  Stream stream;
  for (uint64_t at = blocks_.streams_at();; at = stream.end()) {
    if (!blocks_.stream(at, stream)) return false;
    if (stream.id == stream_pad) {
      data.offset = at;
      break;
    }
    if (stream.id == stream_data) {
      const bool sparse = (stream.system_attributes & stream_sparse) != 0;
      if ((stream.media_attributes & unread_media_attributes) != 0 || (sparse && stream.length != 0))
        return blocks_.fail(at, "data in a form that is not read here");
      data.offset = stream.offset;
      data.size = stream.length;
      data.present = true;
      data.sparse = sparse;
      break;
    }
    if (!parse_stream(stream, entry)) return false;
  }
  bad_name = is_directory ? !directory_path(entry.path) : !plain_name(entry.path);
  return true;
}

bool Set_Reader::parse_stream(const Stream& stream, Entry& entry) {
  std::string bytes;
  switch (stream.id) {
    case stream_path_name:
    case stream_file_name:
      if (!blocks_.data(stream, name_stream_max, bytes)) return false;
      entry.path = blocks_.decoded(std::move(bytes));
      return true;
    case stream_unix_stat:
      if (!blocks_.data(stream, entry_text_max, bytes)) return false;
      entry.has_stat = get_unix_stat(bytes, entry.stat);
      return entry.has_stat || blocks_.fail(stream.offset, "no stat record");
    case stream_unix_link:
      return blocks_.data(stream, entry_text_max, entry.link_target);
    case stream_unix_hard_link:
      return blocks_.data(stream, entry_text_max, entry.hard_link_target);
    case stream_unix_xattrs:
      if (!blocks_.data(stream, entry_xattrs_max, bytes)) return false;
      return get_xattrs(bytes, entry.xattrs) || blocks_.fail(stream.offset, "no list of attributes");
    default:
      return true;
  }
}

}  // namespace MTF
