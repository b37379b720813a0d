#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "client_io/client_io_base.h"
#include "kolt/export.h"

namespace MTF_BACKUP {

/// The object that makes a set.
constexpr char commit_name[] = "commit";

/// The key of an object of a set in parts: "<name>/<seq>.<incarnation>/<object>", counted from the resource.
struct TESSARIN_API Set_Key {
  std::string name;  ///< encoded
  uint32_t seq = 0;
  uint32_t incarnation = 0;
  std::string object;

  /// "<name>/<seq>.<incarnation>".
  std::string dir() const;
  auto order() const { return std::tie(name, seq, incarnation); }
};

/// @retval false  it is not the key of a set's object; @a parts is undefined.
TESSARIN_API bool parse_set_key(std::string_view key, Set_Key& parts);

/// As Client_IO_Base::list(), and a storage that lists other keys than it was asked for is an error: EIO, logged.
[[nodiscard]] bool list_below(Client_IO_Base& storage, const std::string& prefix,
                              const Client_IO_Base::List_Callback& each);

/// Adds the keys of all objects of sets that begin with @a prefix. False with errno; logged.
[[nodiscard]] bool list_set_keys(Client_IO_Base& storage, const std::string& prefix, std::vector<Set_Key>& keys);

/// Key of the directory of a set. @param name  encoded.
std::string set_dir(const std::string& name, uint32_t seq, uint32_t incarnation);

/// What the directories of all sets of this number begin with: ten digits and a dot.
std::string seq_part(uint32_t seq);

/// A set of a pool, known by the key of its commit record alone.
struct TESSARIN_API Pool_Key {
  std::string host;
  std::string resource;
  Set_Key set;

  auto order() const { return std::tie(host, resource, set.name, set.seq, set.incarnation); }
};

/**
 * All sets of a pool, ordered by host, resource, encoded name, number and incarnation. No record is read, so some may
 * turn out to be damaged.
 *
 * @param pool            a client rooted at the pool itself.
 * @param host, resource  only of these; empty: of all. A resource without a host is looked for at all hosts.
 * @retval false  with errno; logged.
 */
[[nodiscard]] TESSARIN_API bool list_pool(Client_IO_Base& pool, const std::string& host, const std::string& resource,
                                          std::vector<Pool_Key>& sets);

}  // namespace MTF_BACKUP
