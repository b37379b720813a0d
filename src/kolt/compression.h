#pragma once

enum Compression_Method {
  COMPR_NONE = 0,
  /// Zstandard that leaves data as it is where it does not shrink.
  COMPR_AUTO = 1,
  COMPR_LZOP = 2,
  COMPR_ZSTD = 3,
  COMPR_MAX = 4
};

/// The method for a compression number of a backup set, which counts alike; COMPR_NONE for one that is not known.
inline Compression_Method mtf_to_compression(unsigned short compression) {
  return compression < COMPR_MAX ? static_cast<Compression_Method>(compression) : COMPR_NONE;
}
