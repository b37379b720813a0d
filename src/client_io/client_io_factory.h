#pragma once

#include <memory>
#include <string>

#include "client_io/client_io_base.h"
#include "kolt/export.h"

struct Pool_Info;

namespace client_io {
struct Rate_Limiters;
}

/**
 * Makes a client of the pool, rooted at <pool>/@a uri_path.
 *
 * Nothing is made or opened in the pool yet, so a pool that cannot be reached shows at the first operation.
 *
 * @param uri_path  empty, or a key as of Client_IO_Base; '/' before and behind it does not count.
 * @param limiters  shared with other clients; null: the client has its own, as the options tell.
 * @return empty on failure, after one line at LM_ERROR: a URL scheme or a cipher that is not supported, a URL without a
 *   directory or a bucket, credentials that are missing, a path that is no key, or no memory (errno ENOMEM). For all
 *   but the last errno is EINVAL or ENOTSUP. Of the URL only its scheme is shown.
 */
[[nodiscard]] TESSARIN_API std::shared_ptr<Client_IO_Base> make_client_io(
    const Pool_Info& pool, const std::string& uri_path, const Client_IO_Base::Options& options,
    std::shared_ptr<client_io::Rate_Limiters> limiters = nullptr);
