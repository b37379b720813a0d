#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "kolt/compression.h"
#include "mtf_backup/set/frame.h"

struct ZSTD_CCtx_s;
struct ZSTD_DCtx_s;

namespace MTF_BACKUP {

/// How the frames of one medium are stored.
struct Frame_Method {
  Compression_Method compression = COMPR_NONE;
  int level = 0;  ///< of zstd; 0 is the method's default
};

/**
 * Compresses and decompresses frames, with contexts and a spare buffer that are used again. A frame goes in and comes
 * out in the same Frame_Buffer variable: the buffers are exchanged, nothing is copied. Threads: each has its own.
 */
class Frame_Codec {
 public:
  Frame_Codec();
  ~Frame_Codec();

  /// @param size  of the plain frame; on success of the stored one, at most frame_capacity.
  /// @retval false  errno is ENOMEM or EINVAL (level), after one line at LM_ERROR.
  bool compress(Frame_Buffer& frame, size_t& size, Frame_Method method);

  /// Whether @a size stored bytes give exactly @a plain_size plain ones (at most frame_size), which then stand in @a
  /// frame. Otherwise the frame is damaged, or memory ran out (errno ENOMEM, else EBADMSG); nothing is logged.
  bool decompress(Frame_Buffer& frame, size_t size, size_t plain_size, Compression_Method compression);

 private:
  bool have_spare();

  struct Free {
    void operator()(ZSTD_CCtx_s* context) const;
    void operator()(ZSTD_DCtx_s* context) const;
  };

  Frame_Buffer spare_;
  std::unique_ptr<ZSTD_CCtx_s, Free> compressor_;
  std::unique_ptr<ZSTD_DCtx_s, Free> decompressor_;
};

}  // namespace MTF_BACKUP
