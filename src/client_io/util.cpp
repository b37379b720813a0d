#include "client_io/util.h"

#include "http/http_head.h"

void set_http_head_to_options(Client_IO_Base::Options& opts, int head, const std::string& value) {
  if (const char* name = http_head_string(head, 0)) opts.set_extra_option(name, value);
}

void set_access_key_to_options(Client_IO_Base::Options& opts, const std::string& key) {
  set_http_head_to_options(opts, HTTP_HEAD_X_ACCESS_KEY, key);
}
