#pragma once

#include <string>
#include <string_view>

#include "kolt/export.h"

/**
 * Masks with "******" what a log must not hold:
 * - in JSON text, compact, indented or itself quoted inside a JSON string, the values of the members access_key, key,
 *   iv, secret_key, secret_access_key, session_token, tenant_access_key, password, token, X-Access-Key and those named
 *   like the headers below, be they texts, numbers, lists or objects. A text that is cut off is masked up to the end of
 *   its line, a list or an object up to the end of all;
 * - the rest of a line behind the headers "X-Access-Key:", "Authorization:", "Proxy-Authorization:", "Cookie:",
 *   "Set-Cookie:" and "X-Amz-Security-Token:";
 * - the word behind "Bearer".
 *
 * Names are compared without regard to case. Nothing else is touched, and a redacted text stays as it is when it is
 * redacted again. Never throws: without memory the result is empty. Threads: any.
 */
TESSARIN_API std::string redact_secrets(std::string_view log_text) noexcept;
