#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace MTF_BACKUP {

/// A medium is cut into frames of this many plain bytes; only the last one may be shorter.
constexpr size_t frame_size = size_t(1) << 20;
constexpr unsigned frame_shift = 20;

/// Room for one frame, plain or stored: no method makes a frame longer than this.
constexpr size_t frame_capacity = frame_size + (frame_size >> 8) + 512;

/// Memory for one frame, not zeroed.
typedef std::unique_ptr<char[]> Frame_Buffer;

}  // namespace MTF_BACKUP
