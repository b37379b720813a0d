#pragma once

#include <array>
#include <mutex>
#include <string>
#include <vector>

#include "kolt/secret_file.h"

/// SHA-256 of a token: what is kept and compared in its place.
typedef std::array<unsigned char, 32> Token_Digest;
Token_Digest digest_of(const std::string& token);

/**
 * The tokens of a file that lets callers in: one per line; empty lines and those that begin with '#' do not count. A
 * token has at least 16 characters, of those that may stand in a header: letters, digits and "-._~+/=".
 *
 * The file is a secret one (kolt/secret_file.h) and is read again when it has changed. Threads: check() any.
 */
class Token_List {
 public:
  static constexpr size_t shortest_token = 16;

  explicit Token_List(const std::string& path) : path_(path), stamp_(path) {}

  /// For the first time. @retval -1  it cannot be read, holds what is no token, or none; one line at LM_ERROR.
  int load();

  /// @retval 200  it stands in the file.   @retval 401  it does not.   @retval 503  the file cannot be read now, or
  /// holds what is no token: nobody is let in; one line at LM_ERROR for each such change of the file.
  unsigned check(const Token_Digest& token);

 private:
  std::string read(std::vector<Token_Digest>& tokens) const;
  void read_again();

  const std::string path_;
  std::mutex lock_;
  kolt::File_Stamp stamp_;  // guarded by lock_, as all below
  std::vector<Token_Digest> tokens_;
  std::string fault_;  // of the file; empty: it is good
};
