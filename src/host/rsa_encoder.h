#pragma once

#include "host/codec_impl.h"
#include "kolt/export.h"

/// Enciphers a short text for the owner of an RSA key. Logs nothing.
class TESSARIN_API RSA_Encoder : public Codec_Impl_T<unsigned char> {
 public:
  /**
   * @param data     at most capacity() bytes.
   * @param key      the RSA public key, PEM or DER.
   * @param base64   whether the result is base64, in one line.
   * @param padding  1: OAEP with SHA-256. Nothing else works.
   */
  RSA_Encoder(const unsigned char* data, unsigned long length, const unsigned char* key, unsigned long key_length,
              bool base64, int padding);

  /// The longest text that a key can encipher with OAEP and SHA-256, in bytes; -1 if @a key is no RSA public key that
  /// is long enough.
  static long capacity(const unsigned char* key, unsigned long key_length);

 private:
  bool encode(const unsigned char* data, unsigned long length, const unsigned char* key, unsigned long key_length,
              int padding);
};
