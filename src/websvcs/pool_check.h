#pragma once

#include <string>

/**
 * Lists the root of a pool, up to its first object.
 *
 * @param pool  a URL, or the absolute path of a file with the pool's JSON description, which is read each time and
 *              must not be open to others (it may hold keys).
 * @return what is wrong, without URL or keys; empty: the pool answered.
 */
std::string pool_fault(const std::string& pool);
