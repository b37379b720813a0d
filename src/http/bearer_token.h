#pragma once

#include <string>
#include <string_view>

/// Takes the token out of the value of "Authorization": "Bearer", spaces, and the token, which is not empty and has
/// none. @retval false  it is of another form; @a token is untouched.
bool bearer_token(std::string_view authorization, std::string& token);
