#pragma once

#include <functional>

// Makes chosen calls of the C library fail in this test program, by standing in their place.
namespace posix_faults {

enum Call {
  WRITE,
  FSYNC,
  SYNCFS,
  SETTLE,  ///< sync_file_range() that waits
  CLOSE,
  RENAME,
  RENAME_DONE,  ///< a rename that takes place and yet fails
  PREAD,
  READDIR,
  CALLS
};

/// From now on the @a nth call (from 0) of @a call fails with @a error. One plan at a time.
void fail(Call call, int nth, int error);
/// All calls work again. Whether the planned failure came up.
bool stop();
/// From now on every fstatat() of this name fails with @a error; of none where it is null.
void fail_status_of(const char* name, int error);
/// How often @a call was made since fail() or count() was called last.
void count(Call call);
int calls();

/**
 * Lets every @a call of an attempt fail in turn, until an attempt makes fewer, which has to succeed.
 *
 * @param attempt  whether it succeeded.
 * @param undo     after an attempt that did in spite of a failure: not every close is of an object.
 * @param check    after one that failed, with its errno.
 * @return how many failed.
 */
int fail_each(Call call, int error, const std::function<bool()>& attempt, const std::function<void()>& undo,
              const std::function<void()>& check);

}  // namespace posix_faults
