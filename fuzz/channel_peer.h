#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "http/http_server_options.h"
#include "http/http_service.h"

/// What a connection of the server says to a peer that sends @a head at once, then @a bytes in pieces of @a piece bytes
/// (0: all at once), and then no more. Runs on the calling thread; a server that neither reads nor answers nor ends
/// aborts the program.
std::string said_to(std::string_view head, std::string_view bytes, size_t piece, HTTP_Service& service,
                    const HTTP_Server_Options& options);
