#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <streambuf>

#include "kolt/export.h"

namespace MTF_FS {

/**
 * A regular file as a stream buffer, for reading.
 *
 * Large reads go straight into the caller's memory, and the buffer is allocated only when a small one needs it. sgetn
 * returns less than was asked for only at the end of the file or on an error; errno is then 0 or tells the error.
 * Interrupted calls are repeated. One thread at a time.
 */
class TESSARIN_API ifilebuf : public std::streambuf {
 public:
  explicit ifilebuf(size_t buffer_size);
  /// Closes the file.
  ~ifilebuf() override;

  /**
   * Opens @a path in place of what was open. A final link is not followed (ELOOP), and what is no regular file is
   * refused (EISDIR, EINVAL) without ever waiting for it. The access time stays as it is where the system allows that.
   *
   * @return 0; -1 with errno
   */
  int open(const char* path, int flags, int mode);
  bool is_open() const { return fd_ >= 0; }
  /// Finds the first data at or behind @a from, up to the next hole or the end of the file, and goes there. At the end,
  /// true with begin and end equal. False with errno; the next read then begins at @a from.
  bool next_data(uint64_t from, uint64_t& begin, uint64_t& end);
  /// 0, also where nothing is open; -1 with errno. Closed in any case.
  int close();

 protected:
  std::streamsize xsgetn(char* to, std::streamsize n) override;
  int_type underflow() override;

 private:
  ssize_t read_some(char* to, size_t n);

  const size_t buffer_size_;
  std::unique_ptr<char[]> buffer_;
  int fd_ = -1;
};

/**
 * A file as a stream buffer, for writing.
 *
 * Large writes go straight to the file once nothing is held back before them. After a failed write all later ones fail
 * with the same errno, and nothing that was held back is tried again. One thread at a time.
 */
class TESSARIN_API ofilebuf : public std::streambuf {
 public:
  explicit ofilebuf(size_t buffer_size);
  /// Closes the file; errors go unseen.
  ~ofilebuf() override;

  /// Opens @a path in place of what was open, whose errors go unseen. A final link is not followed (ELOOP), and a FIFO
  /// is not waited for (ENXIO). 0; -1 with errno.
  int open(const char* path, int flags, int mode);
  bool is_open() const { return fd_ >= 0; }
  /// Makes the file @a offset bytes long, with a hole behind what was written, and goes on there. False with errno;
  /// then later writes fail too. An offset before the next write's is EINVAL.
  bool skip_to(uint64_t offset);
  /// Writes what is held back and closes. 0, also where nothing is open; -1 with errno when this or a write before
  /// failed. Closed in any case.
  int close();

 protected:
  std::streamsize xsputn(const char* from, std::streamsize n) override;
  int_type overflow(int_type c) override;
  /// Writes what is held back and asks the filesystem for the errors that a close would tell. -1 with errno.
  int sync() override;

 private:
  bool write_all(const char* from, size_t n);
  bool flush_buffer();
  bool need_room();

  const size_t buffer_size_;
  std::unique_ptr<char[]> buffer_;
  int fd_ = -1;
  int error_ = 0;
};

}  // namespace MTF_FS
