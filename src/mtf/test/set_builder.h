#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "mtf/core/entry.h"
#include "mtf/core/set_writer.h"

/// An entry with a stat in which no two fields are alike.
inline MTF::Entry make_entry(const std::string& path, uint32_t type = S_IFREG) {
  MTF::Entry entry;
  entry.path = path;
  entry.stat.mode = type | 0640;
  entry.stat.uid = 1001;
  entry.stat.gid = 1002;
  entry.stat.dev = 0x0123456789abcdef;
  entry.stat.ino = 0xfedcba9876543210;
  entry.stat.nlink = 3;
  entry.stat.size = 77;
  entry.stat.atime = {1600000001, 111};
  entry.stat.mtime = {1600000002, 222222222};
  entry.stat.ctime = {1600000003, 999999999};
  return entry;
}

inline MTF::Set_Header make_header() {
  MTF::Set_Header header;
  header.family_id = 7;
  header.media_name = "medium";
  header.software_name = "writer";
  header.set_name = "set";
  header.user = "root";
  header.time = 1700000000;
  return header;
}

/// Puts all of @a data into the current file.
inline bool fill(MTF::Set_Writer& writer, std::string_view data) {
  while (!data.empty()) {
    char* at;
    size_t avail;
    if (!writer.room(at, avail) || avail == 0) return false;
    const size_t n = std::min(avail, data.size());
    data.copy(at, n);
    if (!writer.filled(n)) return false;
    data.remove_prefix(n);
  }
  return true;
}

inline bool put_file(MTF::Set_Writer& writer, const MTF::Entry& entry, std::string_view data) {
  return writer.begin_file(entry, data.size()) && fill(writer, data) && writer.end_file();
}
