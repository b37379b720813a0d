#pragma once

#include <string>

#include "kolt/pool_info.h"

// Which storage pool a command line names.
namespace ctl {

struct Options;

/**
 * The pool of --pool-file or else of --pool; with an empty `url` where neither names one.
 * @throws Failure (exit_usage): the file cannot be read, is no JSON object, or holds no URL.
 */
Pool_Info given_pool(const Options& options);

/// "file://" and the absolute path for a plain directory; URLs as they are.
std::string pool_url(const std::string& pool);

/// A URL for messages: without what it may carry before an '@'.
std::string shown_url(const std::string& url);

}  // namespace ctl
