#pragma once

#include "kolt/export.h"

/// The CA file of the pod's service account if there is one, also if it can't be read: then nobody is to be trusted.
/// Null if there is none: the system's store is to be used. Asked for each new connection, as the file is replaced now
/// and then.
TESSARIN_API const char* trusted_issuers_file();
