#include "mtf_backup/backup/file_copier.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "mtf/core/little_endian.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t max_read = size_t(1) << 20;  // a cancel is seen between two reads

}  // namespace

bool File_Copier::write_failed() {
  state_.fail(MTF::E_WRITE_TO_STORAGE);
  return false;
}

bool File_Copier::copy(MTF::IFile_Reader& reader, const MTF::Entry& entry, bool may_have_holes, File_Copy& result) {
  const uint64_t size = entry.stat.size;
  result = File_Copy();
  hash_.reset();
  // A file that takes little room may just be compressed, and a reader may know no holes.
  Stretch data;
  if (may_have_holes && next_data(reader, 0, data) && (data.begin > 0 || data.end < size)) {
    if (!writer_.begin_sparse_file(entry, size)) return write_failed();
    return put_extents(reader, size, data, result) && end(size, result);
  }
  if (!writer_.begin_file(entry, size)) return write_failed();
  result.data_size = size;
  return put(reader, size, result) && fill(size - result.got) && end(size, result);
}

bool File_Copier::put_extents(MTF::IFile_Reader& reader, uint64_t size, Stretch data, File_Copy& result) {
  for (;;) {
    if (state_.stopping()) return false;
    const uint64_t begin = std::clamp(data.begin, result.got, size);
    state_.processed += begin - result.got;
    result.got = begin;
    data.end = std::min(data.end, size);
    if (data.begin >= data.end) return true;  // nothing but a hole up to the end
    if (!put_extent(reader, data, result)) return false;
    if (result.got < data.end || result.got == size) return true;
    if (!next_data(reader, data.end, data)) {
      result.error = errno;
      return true;
    }
  }
}

bool File_Copier::put_extent(MTF::IFile_Reader& reader, const Stretch& data, File_Copy& result) {
  const uint64_t size = data.end - data.begin;
  char place[sizeof data.begin];
  MTF::put_le(place, data.begin);
  hash_.update(place, sizeof place);
  result.data_size += size;
  if (!writer_.begin_extent(data.begin, size)) return write_failed();
  return put(reader, data.end, result) && fill(data.end - result.got);
}

/// False with errno.
bool File_Copier::next_data(MTF::IFile_Reader& reader, uint64_t from, Stretch& data) {
  ACE_UINT64 begin = 0;
  ACE_UINT64 end = 0;
  if (!reader.next_data(from, begin, end)) return false;
  data = {begin, end};
  // At the end of the file both are the same, and less than asked for where the file was cut off.
  if (begin == end || (begin >= from && begin < end)) return true;
  errno = EIO;
  return false;
}

/// Reads up to @a end as far as the file goes, straight into the medium's memory.
bool File_Copier::put(MTF::IFile_Reader& reader, uint64_t end, File_Copy& result) {
  while (result.got < end) {
    if (state_.stopping()) return false;
    char* at = nullptr;
    size_t room = 0;
    if (!writer_.room(at, room)) return write_failed();
    MTF::Buffer buffer(at, static_cast<ACE_UINT32>(std::min(room, max_read)));
    errno = 0;
    if (reader.read(buffer) != MTF::E_OK || buffer.used_size() == 0) {
      result.error = errno;
      return true;
    }
    hash_.update(at, buffer.used_size());
    result.got += buffer.used_size();
    state_.processed += buffer.used_size();
    if (!writer_.filled(buffer.used_size())) return write_failed();
  }
  return true;
}

/// Puts zeros in place of what could not be read: the medium has the length by then.
bool File_Copier::fill(uint64_t size) {
  while (size > 0) {
    if (state_.stopping()) return false;
    char* at = nullptr;
    size_t room = 0;
    if (!writer_.room(at, room)) return write_failed();
    room = static_cast<size_t>(std::min<uint64_t>(room, size));
    std::memset(at, 0, room);
    hash_.update(at, room);
    size -= room;
    if (!writer_.filled(room)) return write_failed();
  }
  return true;
}

bool File_Copier::end(uint64_t size, File_Copy& result) {
  state_.processed += size - result.got;
  result.data_hash = hash_.value();
  const MTF::File_Damage damage = result.got == size ? MTF::FD_NONE
                                  : result.error     ? MTF::FD_UNREADABLE
                                                     : MTF::FD_LENGTH_CHANGED;
  return writer_.end_file(damage, result.got) || write_failed();
}

}  // namespace MTF_BACKUP
