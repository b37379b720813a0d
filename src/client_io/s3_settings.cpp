#include "client_io/s3_settings.h"

#include <algorithm>
#include <cerrno>

#include "ace/Log_Msg.h"
#include "client_io/object_key.h"
#include "client_io/s3_names.h"
#include "http/http_head.h"
#include "kolt/pool_info.h"
#include "kolt/printable.h"

namespace client_io {

namespace {

// The header by which the storage knows its tenant.
constexpr const char s3_tenant_header[] = "x-access-key";

std::nullopt_t s3_refuse(const char* what, std::string_view value) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("%C: \"%C\".\n"), what, printable(value).c_str()));
  errno = EINVAL;
  return std::nullopt;
}

// By reference, as it may be a secret, of which no more copies are wanted.
const std::string& s3_setting(const Pool_Info& pool, const char* name, const std::string& otherwise) {
  for (const Pool_Info::Ext_Attrs_T* map : {&pool.ext_attrs, &pool.default_s3})
    if (const auto found = map->find(name); found != map->end() && !found->second.empty()) return found->second;
  return otherwise;
}

const std::string& s3_setting(const Pool_Info& pool, const char* name) {
  static const std::string none;
  return s3_setting(pool, name, none);
}

bool is_bucket(std::string_view name) {
  const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); };
  return name.size() >= 3 && name.size() <= 63 && letter(name.front()) && letter(name.back()) &&
         std::all_of(name.begin(), name.end(), [&](char c) { return letter(c) || c == '-' || c == '.'; });
}

// What stands in a URL or a header must not end it, nor lead elsewhere.
bool is_plain(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return c > ' ' && c < 0x7f && std::string_view("/?#@\\\"<>").find(c) == std::string_view::npos;
  });
}

bool is_header_value(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7f; });
}

bool set_endpoint(const std::string& endpoint, S3_Settings& settings) {
  std::string_view host = endpoint;
  std::string scheme = "https://";
  if (const size_t colon = host.find("://"); colon != host.npos) {
    scheme = host.substr(0, colon + 3);
    host.remove_prefix(colon + 3);
  }
  while (host.ends_with('/')) host.remove_suffix(1);
  if ((scheme != "https://" && scheme != "http://") || !is_plain(host)) return false;
  // As libcurl leaves it out of the header that is signed.
  const std::string_view default_port = scheme == "https://" ? ":443" : ":80";
  if (host.ends_with(default_port)) host.remove_suffix(default_port.size());
  settings.url = scheme;
  settings.host = host;
  return !host.empty();
}

// The bucket stands in the host's name or begins the path.
bool set_style(const Pool_Info& pool, const std::string& bucket, S3_Settings& settings) {
  const bool own = !s3_setting(pool, "endpoint").empty() || bucket.find('.') != bucket.npos;
  const std::string style = s3_setting(pool, "path_style", own ? "true" : "false");
  if (style == "true")
    settings.base_path = '/' + bucket;
  else
    settings.host = bucket + '.' + settings.host;
  settings.url += settings.host;
  return style == "true" || style == "false";
}

bool set_credentials(const Pool_Info& pool, const Client_IO_Base::Options& options, S3_Credentials& credentials) {
  credentials.access_key_id = s3_setting(pool, "access_key_id", options.access_key);
  credentials.secret_access_key = s3_setting(pool, "secret_access_key", options.secret_key).c_str();
  credentials.session_token = s3_setting(pool, "session_token").c_str();
  return !credentials.access_key_id.empty() && !credentials.secret_access_key.empty() &&
         is_header_value(credentials.access_key_id) && is_header_value(credentials.session_token);
}

bool set_tenant(const Client_IO_Base::Options& options, S3_Settings& settings) {
  const auto tenant = options.extra_options.find(http_head_string(HTTP_HEAD_X_ACCESS_KEY, 0));
  if (tenant == options.extra_options.end() || tenant->second.empty()) return true;
  settings.headers[s3_tenant_header] = tenant->second;
  return is_header_value(tenant->second);
}

std::string s3_prefix(std::string_view of_pool, std::string_view path) {
  std::string prefix(of_pool);
  if (!prefix.empty()) prefix += '/';
  if (!path.empty()) prefix += s3_name_of(path) + '/';
  return prefix;
}

}  // namespace

std::string S3_Settings::name_of(std::string_view key) const {
  return prefix + s3_name_of(key);
}

bool S3_Settings::key_of(const std::string& name, std::string& key) const {
  return name.starts_with(prefix) && s3_key_of(std::string_view(name).substr(prefix.size()), key) && is_key(key);
}

std::optional<S3_Settings> s3_settings(const Pool_Info& pool, std::string_view path,
                                       const Client_IO_Base::Options& options) {
  // The URL is not shown where it is wrong: it might hold a password.
  const std::string_view place = std::string_view(pool.url).substr(s3_scheme.size());
  const std::string bucket(place.substr(0, place.find('/')));
  if (!is_bucket(bucket)) return s3_refuse("The storage pool's URL has no valid bucket", s3_scheme);
  std::string_view prefix = place.substr(bucket.size());
  while (prefix.starts_with('/')) prefix.remove_prefix(1);
  while (prefix.ends_with('/')) prefix.remove_suffix(1);
  if (!prefix.empty() && !is_key(prefix)) return s3_refuse("The prefix in the storage pool is not allowed", prefix);

  S3_Settings settings;
  settings.region = s3_setting(pool, "region", "us-east-1");
  const std::string endpoint = s3_setting(pool, "endpoint", "https://s3." + settings.region + ".amazonaws.com");
  if (!is_plain(settings.region)) return s3_refuse("The storage pool's region is not allowed", settings.region);
  if (!set_endpoint(endpoint, settings)) return s3_refuse("The storage pool's endpoint is no URL of a host", bucket);
  if (!set_style(pool, bucket, settings))
    return s3_refuse("The storage pool's path_style is neither true nor false", bucket);
  if (!set_credentials(pool, options, settings.credentials))
    return s3_refuse("The storage pool has no access_key_id with a secret_access_key that can be used", bucket);
  if (!set_tenant(options, settings)) return s3_refuse("The storage pool's access key cannot be sent", bucket);

  settings.prefix = s3_prefix(prefix, path);
  settings.root = std::string(s3_scheme) + bucket + '/' + settings.prefix;
  settings.ca_file = s3_setting(pool, "ca_file");
  settings.source_address =
      pool.preferred_source_address.empty() ? options.preferred_source_address : pool.preferred_source_address;
  settings.server_side_encryption = pool.server_side_encryption;
  settings.overwrite = options.overwrite;
  settings.socket_timeout_seconds = options.socket_timeout_seconds;
  settings.max_seconds_retry = options.max_seconds_retry;
  settings.resumption_buffer_size = options.resumption_buffer_size;
  return settings;
}

}  // namespace client_io
