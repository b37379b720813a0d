#include "mtf/core/entry.h"

namespace MTF {

namespace {

Timestamp timestamp(const timespec& time) {
  return {time.tv_sec, static_cast<uint32_t>(time.tv_nsec)};
}

ACE_UINT64 whole_seconds(const Timestamp& time) {
  return time.sec < 0 ? 0 : static_cast<ACE_UINT64>(time.sec);
}

}  // namespace

Entry_Stat entry_stat(const ACE_stat& st) {
  Entry_Stat kept;
  kept.mode = st.st_mode;
  kept.uid = st.st_uid;
  kept.gid = st.st_gid;
  kept.rdev = st.st_rdev;
  kept.dev = st.st_dev;
  kept.ino = st.st_ino;
  kept.nlink = st.st_nlink;
  kept.size = static_cast<uint64_t>(st.st_size);
  kept.atime = timestamp(st.st_atim);
  kept.mtime = timestamp(st.st_mtim);
  kept.ctime = timestamp(st.st_ctim);
  return kept;
}

Callback_Stat callback_stat(const Entry_Stat& st) {
  Callback_Stat shown;
  shown.gid = st.gid;
  shown.uid = st.uid;
  shown.mode = st.mode;
  shown.dev = st.dev;
  shown.ino = st.ino;
  shown.nlink = st.nlink;
  shown.rdev = st.rdev;
  shown.size = st.size;
  shown.atime = whole_seconds(st.atime);
  shown.mtime = whole_seconds(st.mtime);
  shown.ctime = whole_seconds(st.ctime);
  return shown;
}

}  // namespace MTF
