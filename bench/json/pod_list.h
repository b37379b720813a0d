#pragma once

#include <cstddef>
#include <string>

/// The text of a list of @a pods pods as the API server sends it: compact, members in the order of its types, managed
/// fields included; about 4.9 kB for each pod.
std::string make_pod_list(std::size_t pods);

/// The text of a small request, as a requester of backups sends it.
std::string make_backup_request();
