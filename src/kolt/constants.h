#pragma once

#include <cstddef>

/// Defaults of the storage client.
constexpr int CLIENT_IO_SOCKET_TIMEOUT = 60;                     // seconds
constexpr std::size_t CLIENT_IO_MAX_SECONDS_RETRY = 600;         // seconds
constexpr std::size_t CLIENT_IO_RESUMPTION_BUF_SIZE = 10485760;  // bytes
