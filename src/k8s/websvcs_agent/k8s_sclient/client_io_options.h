#pragma once

#include <cstddef>

#include "client_io/client_io_base.h"

/// Sets what a job decides about the storage clients; the rate limits are divided among @a channels.
void set_client_io_options(Client_IO_Base::Options& opts, const Rate_Limits& rate_limits, size_t max_seconds_retry,
                           size_t resumption_buffer_size, bool server_side_dedup, size_t channels);
