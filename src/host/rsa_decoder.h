#pragma once

#include "host/codec_impl.h"
#include "kolt/export.h"

/// Deciphers a text that RSA_Encoder, or whoever knows the host's public key, has enciphered. Logs nothing.
class TESSARIN_API RSA_Decoder : public Codec_Impl_T<unsigned char> {
 public:
  /**
   * @param data     the enciphered text; with @a base64 as base64, blanks and line ends in it being passed over.
   * @param key      the RSA private key, PEM or DER, without a pass phrase.
   * @param padding  1: OAEP with SHA-256. Nothing else works.
   */
  RSA_Decoder(const unsigned char* data, unsigned long length, const unsigned char* key, unsigned long key_length,
              bool base64, int padding);

 private:
  bool decode(const unsigned char* data, unsigned long length, const unsigned char* key, unsigned long key_length,
              int padding);
};
