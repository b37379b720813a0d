#pragma once

#include <string>

#include "client_io/client_io_base.h"
#include "kolt/export.h"

/// Makes the storage client send a header, named by its number, with each request. A number without a name does
/// nothing.
TESSARIN_API void set_http_head_to_options(Client_IO_Base::Options& opts, int head, const std::string& value);

/// Sets the header by which the storage knows its tenant. The field `access_key` stays as it is.
TESSARIN_API void set_access_key_to_options(Client_IO_Base::Options& opts, const std::string& key);
