#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "kolt/compression.h"
#include "kolt/export.h"
#include "mtf_backup/set/frame.h"
#include "mtf_backup/set/lzop_member.h"

struct ZSTD_CCtx_s;
struct ZSTD_DCtx_s;

namespace MTF_BACKUP {

/// How the frames of one medium are stored.
struct Frame_Method {
  Compression_Method compression = COMPR_NONE;
  int level = 0;  ///< 0 is the method's default
};

/// Whether the method has that level: zstd, and auto, 1 to 22, lzop 1 to 9, all of them 0. Not compressed: any, since
/// it says nothing.
TESSARIN_API bool has_level(Compression_Method compression, int level);

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
  bool compress_zstd(Frame_Buffer& frame, size_t& size, Frame_Method method);
  bool compress_lzop(Frame_Buffer& frame, size_t& size, int level);
  bool decompress_zstd(const char* stored, size_t size, size_t plain_size);

  struct Free {
    void operator()(ZSTD_CCtx_s* context) const;
    void operator()(ZSTD_DCtx_s* context) const;
  };

  Frame_Buffer spare_;
  Lzop_Member lzop_;
  std::unique_ptr<ZSTD_CCtx_s, Free> compressor_;
  std::unique_ptr<ZSTD_DCtx_s, Free> decompressor_;
};

}  // namespace MTF_BACKUP
