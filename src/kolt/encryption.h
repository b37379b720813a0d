#pragma once

/// The numbers stand in pool descriptions and in stored sets. Any int can be held and passed on.
enum Encryption_Algorithm : int {
  ENCRYPT_UNKNOWN = -1,
  ENCRYPT_NONE = 0,
  ENCRYPT_AES_128_CBC = 1,
  ENCRYPT_AES_192_CBC = 2,
  ENCRYPT_AES_256_CBC = 3,
  ENCRYPT_AES_256_GCM = 4
};
