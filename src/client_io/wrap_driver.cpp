#include "client_io/wrap_driver.h"

#include <cerrno>
#include <new>

#include "client_io/encrypted_client_io.h"
#include "client_io/metered_client_io.h"
#include "client_io/rate_limited_client_io.h"
#include "client_io/retrying_client_io.h"

namespace client_io {

namespace {

typedef std::unique_ptr<Client_IO_Base> Client;

Client limited(Client client, const Rate_Limits& limits, std::shared_ptr<Rate_Limiters> limiters) {
  if (!client || (limits.dest_rate_limits.empty() && limits.src_rate_limits.empty())) return client;
  if (!limiters) limiters = std::make_shared<Rate_Limiters>(limits);
  return Client(new (std::nothrow) Rate_Limited_Client_IO(std::move(client), std::move(limiters)));
}

Client metered_driver(Client driver) {
  return Client(new (std::nothrow) Metered_Client_IO(std::move(driver)));
}

Client retrying(Client client, const Client_IO_Base::Options& options) {
  if (!client || options.max_seconds_retry == 0) return client;
  return Client(new (std::nothrow) Retrying_Client_IO(std::move(client), options));
}

Client encrypted(Client client, Pool_Encryption encryption) {
  if (!client || encryption.cipher == ENCRYPT_NONE) return client;
  std::unique_ptr<Encrypted_Client_IO> wrapped(new (std::nothrow)
                                                   Encrypted_Client_IO(std::move(client), std::move(encryption)));
  if (wrapped && !wrapped->start()) return nullptr;
  return wrapped;
}

}  // namespace

std::unique_ptr<Client_IO_Base> wrap_driver(std::unique_ptr<Client_IO_Base> driver,
                                            const Client_IO_Base::Options& options, Pool_Encryption encryption,
                                            bool repeats_itself, std::shared_ptr<Rate_Limiters> limiters) {
  if (!driver) return nullptr;
  errno = ENOMEM;
  Client client = limited(metered_driver(std::move(driver)), options.rate_limits, std::move(limiters));
  if (!repeats_itself) client = retrying(std::move(client), options);
  return encrypted(std::move(client), std::move(encryption));
}

}  // namespace client_io
