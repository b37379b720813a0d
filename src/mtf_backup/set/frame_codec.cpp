#include "mtf_backup/set/frame_codec.h"

#include <zstd.h>

#include <cerrno>
#include <new>

#include "ace/Log_Msg.h"

namespace MTF_BACKUP {

namespace {

static_assert(frame_capacity >= ZSTD_COMPRESSBOUND(frame_size));

constexpr int auto_level = 1;
constexpr size_t probe_size = 32 * 1024;

bool tell_failure(const char* reason, int error) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to compress a frame: %C.\n"), reason));
  errno = error;
  return false;
}

}  // namespace

void Frame_Codec::Free::operator()(ZSTD_CCtx_s* context) const {
  ZSTD_freeCCtx(context);
}
void Frame_Codec::Free::operator()(ZSTD_DCtx_s* context) const {
  ZSTD_freeDCtx(context);
}

Frame_Codec::Frame_Codec() = default;
Frame_Codec::~Frame_Codec() = default;

bool Frame_Codec::have_spare() {
  if (!spare_) spare_.reset(new (std::nothrow) char[frame_capacity]);
  if (!spare_) errno = ENOMEM;
  return spare_ != nullptr;
}

bool has_level(Compression_Method compression, int level) {
  switch (compression) {
    case COMPR_AUTO:
    case COMPR_ZSTD:
      return level >= 0 && level <= ZSTD_maxCLevel();
    case COMPR_LZOP:
      return level >= 0 && level <= 9;
    default:
      return compression == COMPR_NONE;
  }
}

bool Frame_Codec::compress(Frame_Buffer& frame, size_t& size, Frame_Method method) {
  if (method.compression == COMPR_NONE) return true;
  if (!has_level(method.compression, method.level)) return tell_failure("no such level", EINVAL);
  if (!have_spare()) return tell_failure("no memory", ENOMEM);
  const bool done =
      method.compression == COMPR_LZOP ? compress_lzop(frame, size, method.level) : compress_zstd(frame, size, method);
  if (done) frame.swap(spare_);
  return done;
}

bool Frame_Codec::compress_zstd(Frame_Buffer& frame, size_t& size, Frame_Method method) {
  if (!compressor_) compressor_.reset(ZSTD_createCCtx());
  if (!compressor_) return tell_failure("no memory", ENOMEM);
  int level = method.level;
  if (method.compression == COMPR_AUTO) {
    if (level == 0) level = auto_level;
    // Data that does not shrink in a sample is not worth the work: the lowest level stores it as it is.
    const size_t sample = size < probe_size ? size : probe_size;
    const size_t shrunk = ZSTD_compressCCtx(compressor_.get(), spare_.get(), frame_capacity,
                                            frame.get() + (size - sample) / 2, sample, auto_level);
    if (!ZSTD_isError(shrunk) && shrunk > sample - sample / 32) level = ZSTD_minCLevel();
  }
  const size_t stored = ZSTD_compressCCtx(compressor_.get(), spare_.get(), frame_capacity, frame.get(), size, level);
  if (ZSTD_isError(stored)) return tell_failure(ZSTD_getErrorName(stored), EINVAL);
  size = stored;
  return true;
}

bool Frame_Codec::compress_lzop(Frame_Buffer& frame, size_t& size, int level) {
  const size_t stored = lzop_.compress(frame.get(), size, level, spare_.get());
  if (stored == 0) return tell_failure("no memory", ENOMEM);
  size = stored;
  return true;
}

bool Frame_Codec::decompress(Frame_Buffer& frame, size_t size, size_t plain_size, Compression_Method compression) {
  errno = EBADMSG;
  if (compression == COMPR_NONE) return size == plain_size;
  if (plain_size > frame_size) return false;
  if (!have_spare()) return false;
  errno = EBADMSG;
  const bool done = compression == COMPR_LZOP ? Lzop_Member::decompress(frame.get(), size, spare_.get(), plain_size)
                                              : decompress_zstd(frame.get(), size, plain_size);
  if (done) frame.swap(spare_);
  return done;
}

bool Frame_Codec::decompress_zstd(const char* stored, size_t size, size_t plain_size) {
  if (ZSTD_getFrameContentSize(stored, size) != plain_size) return false;
  if (!decompressor_) decompressor_.reset(ZSTD_createDCtx());
  if (!decompressor_) {
    errno = ENOMEM;
    return false;
  }
  return ZSTD_decompressDCtx(decompressor_.get(), spare_.get(), plain_size, stored, size) == plain_size;
}

}  // namespace MTF_BACKUP
