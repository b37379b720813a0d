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

bool Frame_Codec::compress(Frame_Buffer& frame, size_t& size, Frame_Method method) {
  if (method.compression == COMPR_NONE) return true;
  if (!compressor_) compressor_.reset(ZSTD_createCCtx());
  if (!compressor_ || !have_spare()) return tell_failure("no memory", ENOMEM);
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
  frame.swap(spare_);
  size = stored;
  return true;
}

bool Frame_Codec::decompress(Frame_Buffer& frame, size_t size, size_t plain_size, Compression_Method compression) {
  errno = EBADMSG;
  if (compression == COMPR_NONE) return size == plain_size;
  if (plain_size > frame_size || ZSTD_getFrameContentSize(frame.get(), size) != plain_size) return false;
  if (!decompressor_) decompressor_.reset(ZSTD_createDCtx());
  if (!decompressor_ || !have_spare()) {
    errno = ENOMEM;
    return false;
  }
  if (ZSTD_decompressDCtx(decompressor_.get(), spare_.get(), plain_size, frame.get(), size) != plain_size) return false;
  frame.swap(spare_);
  return true;
}

}  // namespace MTF_BACKUP
