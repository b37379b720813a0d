#include "client_io/client_io_factory.h"

#include <cerrno>
#include <new>
#include <string_view>

#include "ace/Log_Msg.h"
#include "client_io/file_client_io.h"
#include "client_io/object_key.h"
#include "client_io/pool_encryption.h"
#include "client_io/s3_client_io.h"
#include "client_io/s3_settings.h"
#include "client_io/wrap_driver.h"
#include "kolt/pool_info.h"
#include "kolt/printable.h"

namespace {

constexpr std::string_view file_scheme = "file://";

std::shared_ptr<Client_IO_Base> refuse(const char* what, std::string_view value, int error) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("%C: \"%C\".\n"), what, printable(value).c_str()));
  errno = error;
  return nullptr;
}

std::string_view strip(std::string_view path) {
  while (path.starts_with('/')) path.remove_prefix(1);
  while (path.ends_with('/')) path.remove_suffix(1);
  return path;
}

// All of a pool's URL that is shown, as it may carry a password. Empty where it has none.
std::string_view scheme_of(std::string_view url) {
  const size_t end = url.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.");
  return end != url.npos && url.substr(end).starts_with("://") ? url.substr(0, end) : std::string_view();
}

std::unique_ptr<Client_IO_Base> make_driver(const Pool_Info& pool, std::string_view path,
                                            const Client_IO_Base::Options& options) {
  std::unique_ptr<Client_IO_Base> driver;
  if (pool.url.starts_with(s3_scheme)) {
    const auto settings = client_io::s3_settings(pool, path, options);
    if (!settings) return nullptr;
    driver.reset(new (std::nothrow) S3_Client_IO(*settings));
  } else {
    const std::string_view directory = std::string_view(pool.url).substr(file_scheme.size());
    const std::string root = "/" + std::string(strip(directory)) + "/" + std::string(path);
    if (!directory.starts_with('/')) {
      refuse("The storage pool's URL has no absolute directory", file_scheme, EINVAL);
      return nullptr;
    }
    driver.reset(new (std::nothrow) File_Client_IO(root, options));
  }
  if (!driver) errno = ENOMEM;
  return driver;
}

}  // namespace

std::shared_ptr<Client_IO_Base> make_client_io(const Pool_Info& pool, const std::string& uri_path,
                                               const Client_IO_Base::Options& options,
                                               std::shared_ptr<client_io::Rate_Limiters> limiters) {
  const std::string_view url = pool.url;
  if (!url.starts_with(file_scheme) && !url.starts_with(s3_scheme))
    return refuse("Storage pools of this kind are not supported", scheme_of(url), ENOTSUP);
  const std::string_view path = strip(uri_path);
  if (!path.empty() && !client_io::is_key(path))
    return refuse("The path in the storage pool is not allowed", uri_path, EINVAL);
  client_io::Pool_Encryption encryption;
  if (!client_io::read_encryption(pool, options, encryption)) return nullptr;
  const bool repeats_itself = url.starts_with(s3_scheme);
  return client_io::wrap_driver(make_driver(pool, path, options), options, std::move(encryption), repeats_itself,
                                std::move(limiters));
}
