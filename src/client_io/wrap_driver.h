#pragma once

#include <memory>

#include "client_io/client_io_base.h"
#include "client_io/pool_encryption.h"

namespace client_io {

struct Rate_Limiters;

/**
 * Puts before a driver what the options and the pool ask for. From the driver upwards: counters; limits; retries, above
 * the limits, so that these count what is sent once more; encryption, so that what is sent once more is the same. What
 * a driver repeats by itself is below the limits and not counted.
 *
 * @param driver          null comes back as it is.
 * @param repeats_itself  whether the driver rides out failures under Options::max_seconds_retry without help.
 * @param limiters        shared with other clients; null: of its own, as the options tell.
 * @return null on failure, with errno: ENOMEM, or as of Encrypted_Client_IO::start().
 */
std::unique_ptr<Client_IO_Base> wrap_driver(std::unique_ptr<Client_IO_Base> driver,
                                            const Client_IO_Base::Options& options, Pool_Encryption encryption,
                                            bool repeats_itself, std::shared_ptr<Rate_Limiters> limiters = nullptr);

}  // namespace client_io
