#pragma once

#include <memory>
#include <optional>
#include <string>

#include "client_io/client_io_base.h"
#include "client_io/s3_signer.h"

struct Pool_Info;

/// Beginning of the URL of an S3 pool.
inline constexpr std::string_view s3_scheme = "s3://";

namespace client_io {

/// Where the objects of one client lie and how they are reached.
struct TESSARIN_API S3_Settings {
  std::string url;        ///< scheme and authority: "https://host:port"
  std::string host;       ///< the authority as the header "host" tells it
  std::string base_path;  ///< "/bucket" in path style, else empty
  std::string prefix;     ///< what names begin with: empty, or ends in '/'
  std::string root;       ///< for the log: "s3://bucket/prefix"
  std::string region;
  S3_Credentials credentials;
  std::string ca_file;         ///< empty: the system's store
  std::string source_address;  ///< empty: any
  S3_Headers headers;          ///< sent with each request
  bool server_side_encryption = false;
  bool overwrite = false;
  int socket_timeout_seconds = 0;
  size_t max_seconds_retry = 0;
  size_t resumption_buffer_size = 0;

  /// The name of a key, or of the beginning of one.
  std::string name_of(std::string_view key) const;
  /// The key of a name of this client. False where it is none.
  [[nodiscard]] bool key_of(const std::string& name, std::string& key) const;
};

/**
 * Reads what a pool with a URL "s3://bucket/prefix" tells in its maps `default_s3` and, before it, `ext_attrs`:
 *
 * | Setting | Default |
 * |---|---|
 * | "endpoint" | "https://s3.REGION.amazonaws.com"; without a scheme it is https |
 * | "region" | "us-east-1" |
 * | "access_key_id", "secret_access_key" | the options' access_key and secret_key |
 * | "session_token" | none |
 * | "path_style" | "true" with an endpoint of its own, or where the bucket's name has a dot; else "false" |
 * | "ca_file" | the system's store |
 *
 * Of the options' extra options the header X-Access-Key is sent along. Connections come from the pool's
 * preferred_source_address, or else the options'.
 *
 * @param path  empty, or a key: the root below the pool's prefix.
 * @return nothing, after one line at LM_ERROR that holds no secret and with errno EINVAL, where something is missing or
 *   not understood.
 */
TESSARIN_API std::optional<S3_Settings> s3_settings(const Pool_Info& pool, std::string_view path,
                                                    const Client_IO_Base::Options& options);

}  // namespace client_io
