#include "k8s/websvcs_agent/k8s_sclient/client_io_options.h"

void set_client_io_options(Client_IO_Base::Options& opts, const Rate_Limits& rate_limits, size_t max_seconds_retry,
                           size_t resumption_buffer_size, bool server_side_dedup, size_t channels) {
  opts.max_seconds_retry = max_seconds_retry;
  opts.resumption_buffer_size = resumption_buffer_size;
  opts.server_side_dedup = server_side_dedup;
  opts.rate_limits = rate_limits;
  opts.rate_limits.set_rate_limits_by_channels(channels);
}
