#include "ctl/secret.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "ctl/failure.h"
#include "host/rsa_decoder.h"
#include "kolt/posix_fd.h"
#include "support/rsa_key_pair.h"
#include "support/temp_dir.h"

namespace {

using ctl::Failure;
using test_support::RSA_Key_Pair;
using ::testing::HasSubstr;
using ::testing::Not;

const RSA_Key_Pair& keys() {
  static const RSA_Key_Pair pair;
  return pair;
}

std::string decoded(const std::string& cipher) {
  const std::string& key = keys().private_pem;
  const RSA_Decoder decoder(reinterpret_cast<const unsigned char*>(cipher.data()), cipher.size(),
                            reinterpret_cast<const unsigned char*>(key.data()), key.size(), true, 1);
  EXPECT_TRUE(decoder);
  return std::string(decoder.get(), decoder.get() + decoder.length());
}

class Secret_Test : public ::testing::Test {
 protected:
  Secret_Test() : key_(dir_.write("public.pem", keys().public_pem)) {}

  std::string encrypt(const std::string& input) {
    const Posix_Fd file(::open(dir_.write("input", input).c_str(), O_RDONLY | O_CLOEXEC));
    return ctl::encrypt_secret(key_, file.get());
  }

  /// What the command says instead of a result.
  std::string failure(const std::string& input) {
    try {
      encrypt(input);
    } catch (const Failure& e) {
      EXPECT_EQ(e.code(), ctl::exit_usage);
      return e.what();
    }
    return "";
  }

  const test_support::Temp_Dir dir_;
  std::string key_;
};

TEST_F(Secret_Test, TheHostDeciphersWhatWasEnciphered) {
  EXPECT_EQ(decoded(encrypt("s3cret $ \\ \"")), "s3cret $ \\ \"");
}

TEST_F(Secret_Test, OneLineFeedAtTheEndIsLeftOut) {
  EXPECT_EQ(decoded(encrypt("s3cret\n")), "s3cret");
  EXPECT_EQ(decoded(encrypt("s3cret\n\n")), "s3cret\n");
  EXPECT_EQ(decoded(encrypt("two\nlines\n")), "two\nlines");
}

TEST_F(Secret_Test, ResultIsOneLineOfBase64) {
  const std::string cipher = encrypt("s3cret");
  EXPECT_EQ(cipher.size(), 344u);
  EXPECT_EQ(cipher.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/="),
            std::string::npos);
}

TEST_F(Secret_Test, TakesAsMuchAsTheKeyCan) {
  EXPECT_EQ(decoded(encrypt(std::string(190, 'x'))), std::string(190, 'x'));
  EXPECT_EQ(failure(std::string(191, 'x')), "The secret is too long: this key takes 190 bytes at most.");
  EXPECT_THAT(failure(std::string(1000000, 'x')), HasSubstr("too long"));
}

TEST_F(Secret_Test, NoSecretIsAFailure) {
  EXPECT_EQ(failure(""), "There is no secret on the standard input.");
  EXPECT_EQ(failure("\n"), "There is no secret on the standard input.");
}

TEST_F(Secret_Test, WhatIsNoPublicKeyIsAFailureThatDoesNotTellTheSecret) {
  for (const char* content : {"", "no key", "-----BEGIN PUBLIC KEY-----\nAAAA\n-----END PUBLIC KEY-----\n"}) {
    key_ = dir_.write("bad.pem", content);
    EXPECT_THAT(failure("s3cret"), HasSubstr("holds no RSA public key"));
    EXPECT_THAT(failure("s3cret"), Not(HasSubstr("s3cret")));
  }
  key_ = dir_ / "missing.pem";
  EXPECT_THAT(failure("s3cret"), HasSubstr("cannot be read"));
}

TEST_F(Secret_Test, ATerminalShowsNothingOfIt) {
  int master = -1, terminal = -1;
  ASSERT_EQ(::openpty(&master, &terminal, nullptr, nullptr, nullptr), 0);
  const Posix_Fd master_end(master), terminal_end(terminal);
  std::string cipher;
  std::thread command([&] { cipher = ctl::encrypt_secret(key_, terminal); });
  termios state;
  do {
    std::this_thread::yield();
    ASSERT_EQ(::tcgetattr(terminal, &state), 0);
  } while (state.c_lflag & ECHO);
  ASSERT_EQ(::write(master, "s3cret\n", 7), 7);
  command.join();
  EXPECT_EQ(decoded(cipher), "s3cret");
  ASSERT_EQ(::tcgetattr(terminal, &state), 0);
  EXPECT_TRUE(state.c_lflag & ECHO);
  ASSERT_EQ(::fcntl(master, F_SETFL, O_NONBLOCK), 0);
  char shown[64];
  EXPECT_LE(::read(master, shown, sizeof shown), 0);
}

}  // namespace
