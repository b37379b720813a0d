#pragma once

#include <memory>
#include <string>

#include "client_io/client_io_base.h"
#include "kolt/export.h"

struct Pool_Info;

namespace MTF_BACKUP {

/**
 * Gives the storage of one resource in a pool to a backup or restore.
 * Threads: storage() may be called from any thread.
 */
class TESSARIN_API Channel_Factory {
 public:
  virtual ~Channel_Factory() = default;

  /**
   * A new client rooted at <pool>/<uri_path>. All clients that a factory has given out keep to the rate limits
   * together, as they were before they were shared out over channels: whoever is at work. The run that takes a client
   * may cancel it at its end, so nobody else gets the same one.
   * @return empty on failure: errno is ENOMEM, nothing is logged.
   */
  [[nodiscard]] virtual std::shared_ptr<Client_IO_Base> storage() = 0;

  /// The options that every client gets.
  virtual const Client_IO_Base::Options& options() const = 0;
};
typedef std::shared_ptr<Channel_Factory> Channel_Factory_var;

/**
 * Makes the factory for the storage at @a uri_path of @a pool. Nothing is opened yet. A pool with a key but without a
 * cipher, which is not encrypted, has a line at LM_WARNING.
 *
 * @return empty on failure, after one line at LM_ERROR that says what is wrong with the pool or the path, as
 * make_client_io() does. Empty with errno ENOMEM and no line when memory ran out.
 */
[[nodiscard]] TESSARIN_API Channel_Factory_var make_channel_factory(const Pool_Info& pool, const std::string& uri_path,
                                                                    const Client_IO_Base::Options& options);

}  // namespace MTF_BACKUP
