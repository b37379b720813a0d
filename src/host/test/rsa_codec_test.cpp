#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "host/rsa_decoder.h"
#include "host/rsa_encoder.h"
#include "kolt/base64_encoder.h"
#include "support/log_capture.h"
#include "support/rsa_key_pair.h"
#include "support/temp_dir.h"

namespace {

using test_support::Log_Capture;
using test_support::read_file;
using test_support::RSA_Key_Pair;
using test_support::Temp_Dir;

constexpr int oaep_sha256 = 1;

const RSA_Key_Pair& keys() {
  static const RSA_Key_Pair pair;
  return pair;
}

const unsigned char* bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::string text_of(const Codec_Impl_T<unsigned char>& codec) {
  return std::string(codec.get(), codec.get() + codec.length());
}

RSA_Decoder decode(const std::string& data, const std::string& key, bool base64, int padding = oaep_sha256) {
  return RSA_Decoder(bytes(data), data.size(), bytes(key), key.size(), base64, padding);
}

RSA_Encoder encode(const std::string& data, const std::string& key, bool base64, int padding = oaep_sha256) {
  return RSA_Encoder(bytes(data), data.size(), bytes(key), key.size(), base64, padding);
}

std::string encoded(const std::string& data, bool base64 = true) {
  const RSA_Encoder encoder = encode(data, keys().public_pem, base64);
  EXPECT_TRUE(encoder);
  return text_of(encoder);
}

TEST(RSA_Codec, WhatIsEncodedIsDecoded) {
  for (const std::string& secret : {std::string("s3cret"), std::string("\0\xff\n", 3), std::string(190, 'x')}) {
    const RSA_Decoder decoder = decode(encoded(secret), keys().private_pem, true);
    EXPECT_TRUE(decoder);
    EXPECT_EQ(text_of(decoder), secret);
    EXPECT_EQ(decoder.length(), secret.size());
  }
}

TEST(RSA_Codec, WorksOnPlainBytesToo) {
  const std::string cipher = encoded("s3cret", false);
  EXPECT_EQ(cipher.size(), 256u);
  EXPECT_EQ(text_of(decode(cipher, keys().private_pem, false)), "s3cret");
  EXPECT_FALSE(decode(cipher, keys().private_pem, true));
}

TEST(RSA_Codec, AnEmptyTextIsDecodedToNothing) {
  const RSA_Decoder decoder = decode(encoded(""), keys().private_pem, true);
  EXPECT_TRUE(decoder);
  EXPECT_EQ(decoder.length(), 0u);
}

TEST(RSA_Codec, TheSameTextIsNeverEncodedTheSameWay) {
  EXPECT_NE(encoded("s3cret"), encoded("s3cret"));
}

TEST(RSA_Codec, Base64MayBeBrokenIntoLines) {
  std::string cipher = encoded("s3cret");
  for (size_t i = 64; i < cipher.size(); i += 65) cipher.insert(i, "\n");
  EXPECT_EQ(text_of(decode(cipher + "\r\n", keys().private_pem, true)), "s3cret");
}

TEST(RSA_Codec, AChangedCipherIsRefused) {
  std::string cipher = encoded("s3cret", false);
  cipher[100] = static_cast<char>(cipher[100] ^ 1);
  const RSA_Decoder decoder = decode(cipher, keys().private_pem, false);
  EXPECT_FALSE(decoder);
  EXPECT_EQ(decoder.length(), 0u);
}

TEST(RSA_Codec, WhatIsNoCipherIsRefusedSilently) {
  const Log_Capture log;
  for (const char* text : {"", "!!!", "aGVsbG8=", "hello"}) {
    EXPECT_FALSE(decode(text, keys().private_pem, true)) << text;
    EXPECT_FALSE(decode(text, keys().private_pem, false)) << text;
  }
  EXPECT_FALSE(RSA_Decoder(nullptr, 0, nullptr, 0, true, oaep_sha256));
  EXPECT_FALSE(RSA_Decoder(nullptr, 0, nullptr, 0, false, oaep_sha256));
  EXPECT_EQ(log.all(), "");
}

TEST(RSA_Codec, WithoutTheRightKeyNothingIsDecoded) {
  const std::string cipher = encoded("s3cret");
  EXPECT_FALSE(decode(cipher, RSA_Key_Pair().private_pem, true));
  EXPECT_FALSE(decode(cipher, keys().public_pem, true));
  EXPECT_FALSE(decode(cipher, "", true));
  EXPECT_FALSE(decode(cipher, "no key", true));
}

TEST(RSA_Codec, NoOtherPaddingWorks) {
  for (const int padding : {0, 2, 4, -1}) {
    EXPECT_FALSE(decode(encoded("s3cret"), keys().private_pem, true, padding));
    EXPECT_FALSE(encode("s3cret", keys().public_pem, true, padding));
  }
}

TEST(RSA_Codec, CapacityIsWhatTheKeyCanTake) {
  const std::string& key = keys().public_pem;
  EXPECT_EQ(RSA_Encoder::capacity(bytes(key), key.size()), 190);
  EXPECT_TRUE(encode(std::string(190, 'x'), key, true));
  EXPECT_FALSE(encode(std::string(191, 'x'), key, true));
  EXPECT_EQ(encode(std::string(191, 'x'), key, true).length(), 0u);
  EXPECT_EQ(RSA_Encoder::capacity(bytes("no key"), 6), -1);
}

// The openssl program knows nothing of ours.
class RSA_Codec_By_OpenSSL : public ::testing::Test {
 protected:
  int pkeyutl(const std::string& arguments) const {
    return std::system(("cd " + dir_.path() +
                        " && openssl pkeyutl -pkeyopt rsa_padding_mode:oaep -pkeyopt rsa_oaep_md:sha256 " + arguments)
                           .c_str());
  }

  const Temp_Dir dir_;
};

TEST_F(RSA_Codec_By_OpenSSL, ItDeciphersWhatWeEncipher) {
  dir_.write("key.pem", keys().private_pem);
  dir_.write("cipher", encoded("s3cret", false));
  ASSERT_EQ(pkeyutl("-decrypt -inkey key.pem -in cipher -out plain"), 0);
  EXPECT_EQ(read_file(dir_ / "plain"), "s3cret");
}

TEST_F(RSA_Codec_By_OpenSSL, WeDecipherWhatItEnciphers) {
  dir_.write("public.pem", keys().public_pem);
  dir_.write("plain", "s3cret");
  ASSERT_EQ(pkeyutl("-encrypt -pubin -inkey public.pem -in plain -out cipher"), 0);
  EXPECT_EQ(text_of(decode(read_file(dir_ / "cipher"), keys().private_pem, false)), "s3cret");
  EXPECT_EQ(text_of(decode(base64_encode(read_file(dir_ / "cipher")), keys().private_pem, true)), "s3cret");
}

TEST_F(RSA_Codec_By_OpenSSL, TheKeyMayBeDerOrOfTheOlderForm) {
  dir_.write("key.pem", keys().private_pem);
  ASSERT_EQ(std::system(("cd " + dir_.path() + " && openssl rsa -in key.pem -traditional -out old.pem 2>/dev/null &&" +
                         "openssl rsa -in key.pem -outform DER -out key.der 2>/dev/null")
                            .c_str()),
            0);
  EXPECT_NE(read_file(dir_ / "old.pem").find("BEGIN RSA PRIVATE KEY"), std::string::npos);
  EXPECT_EQ(text_of(decode(encoded("s3cret"), read_file(dir_ / "old.pem"), true)), "s3cret");
  EXPECT_EQ(text_of(decode(encoded("s3cret"), read_file(dir_ / "key.der"), true)), "s3cret");
}

TEST_F(RSA_Codec_By_OpenSSL, AKeyWithAPassPhraseIsRefusedWithoutAsking) {
  dir_.write("key.pem", keys().private_pem);
  ASSERT_EQ(std::system(("cd " + dir_.path() +
                         " && openssl rsa -in key.pem -aes256 -passout pass:x -out locked.pem 2>/dev/null")
                            .c_str()),
            0);
  EXPECT_FALSE(decode(encoded("s3cret"), read_file(dir_ / "locked.pem"), true));
}

}  // namespace
