#pragma once

#include <string>
#include <string_view>

/// Whether @a authorization, the value of a header field, is "Bearer" with @a token. Takes equally long for all values
/// of the same length. An empty token fits nothing.
bool bearer_token_fits(std::string_view authorization, std::string_view token);
