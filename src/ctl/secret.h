#pragma once

#include <string>

namespace ctl {

/**
 * Reads a secret and enciphers it for the owner of an RSA key, as the agent deciphers it (OAEP, SHA-256, base64 in one
 * line).
 *
 * @param public_key_file  PEM.
 * @param input            where the secret is read from, to the end; one line feed at its end is left out. On a
 * terminal it is a line, asked for on the standard error and not shown.
 * @throws Failure(exit_usage): no such key, no secret, or one that is too long for the key. It never holds the secret.
 */
std::string encrypt_secret(const std::string& public_key_file, int input);

}  // namespace ctl
