#pragma once

#include <string>

#include "kolt/export.h"
#include "kolt/secure_memory.h"

/**
 * What a process knows of its host: the private key that secrets are deciphered with.
 *
 * Life: instance() at any time; load_rsa_prvkey() at the start of the process, before other threads read the key.
 * Threads: readers may be many.
 */
class TESSARIN_API Host_Manager {
 public:
  typedef std::basic_string<unsigned char, std::char_traits<unsigned char>, secure_allocator<unsigned char>> key_type;

  static Host_Manager* instance();

  /**
   * Reads the key from a PEM file: an RSA key of at least 2048 bits, without a pass phrase, in a regular file that
   * belongs to root or the running user, that nobody else may read or write, in directories that nobody else may write.
   *
   * @retval false  one line at LM_ERROR tells why; the key stays as it was.
   */
  bool load_rsa_prvkey(const std::string& path);

  /// The key as it stands in its file; empty if none was loaded. Wiped when it is replaced and at the end.
  const key_type& rsa_prvkey() const { return rsa_prvkey_; }

 private:
  Host_Manager() = default;

  key_type rsa_prvkey_;
};
