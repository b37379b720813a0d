#pragma once

#include <cstddef>
#include <memory>

namespace MTF_BACKUP {

/**
 * Frames as members of an lzop archive, each whole in itself, so that "lzop -dc" over an object gives the plain medium.
 * The form stands in doc/set-format.md. Threads: each has its own.
 */
class Lzop_Member {
 public:
  /// Compresses @a size bytes, at most frame_size, to at most frame_capacity. Levels are those of lzop, 1 to 9; 0 is 3.
  /// @return stored bytes; 0: no memory.
  size_t compress(const char* plain, size_t size, int level, char* stored);

  /// Whether @a size stored bytes, of any origin, are one member that gives exactly @a plain_size bytes, at most
  /// frame_size, which then stand in @a plain.
  static bool decompress(const char* stored, size_t size, char* plain, size_t plain_size);

 private:
  size_t compress_block(const char* plain, size_t size, int level);

  std::unique_ptr<char[]> work_;   // of liblzo2
  std::unique_ptr<char[]> block_;  // one compressed block
};

}  // namespace MTF_BACKUP
