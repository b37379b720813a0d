#pragma once

#include <cstddef>

/// File data passes through buffers of this size, in bytes, in both directions.
constexpr std::size_t k8s_file_buffer_size = 131072;
/// Mode of files that a restore makes, before they get their own.
constexpr int k8s_file_mode = 0640;
