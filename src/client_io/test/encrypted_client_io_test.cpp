#include "client_io/encrypted_client_io.h"

#include <cerrno>

#include "client_io/encrypted_layout.h"
#include "support/faulty_client_io.h"
#include "support/log_capture.h"
#include "support/memory_client_io.h"

namespace {

using client_io::chunk_overhead;
using client_io::encrypted_header_size;
using client_io::plain_chunk_size;
using test_support::Log_Capture;
using test_support::Memory_Client_IO;
using test_support::Memory_Pool;

class Encrypted : public ::testing::TestWithParam<Encryption_Algorithm> {
 protected:
  std::unique_ptr<Client_IO_Base> client(char key = 'k', const char* iv = "iv",
                                         Encryption_Algorithm cipher = ENCRYPT_NONE) {
    if (cipher == ENCRYPT_NONE) cipher = GetParam();
    client_io::Pool_Encryption encryption{cipher, secure_string(client_io::key_size(cipher), key), iv};
    auto made = std::make_unique<Encrypted_Client_IO>(std::make_unique<Memory_Client_IO>(pool_), std::move(encryption));
    EXPECT_TRUE(made->start());
    return made;
  }

  void store(const std::string& key, const std::string& bytes) {
    const auto writer = client_->create(key);
    ASSERT_TRUE(writer && writer->write(bytes.data(), bytes.size()) && writer->commit());
  }
  static std::string fetch(Client_IO_Base& from, const std::string& key) {
    const auto reader = from.open(key);
    if (!reader) return "(closed)";
    std::string bytes(reader->size(), '\0');
    return reader->read(0, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) ? bytes : "(unreadable)";
  }
  std::string fetch(const std::string& key) { return fetch(*client_, key); }

  std::string& stored(const std::string& key) { return pool_->objects[key]; }

  static std::string content(size_t n) {
    std::string bytes(n, '\0');
    for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
  }

  // The object is not read, and one line tells so.
  void expect_refused(Client_IO_Base& from, const std::string& key, const std::string& line) {
    Log_Capture log;
    const std::string got = fetch(from, key);
    EXPECT_TRUE(got == "(closed)" || got == "(unreadable)") << got.size() << " bytes came";
    EXPECT_EQ(errno, EBADMSG);
    ASSERT_EQ(log.lines().size(), 1u) << log.all();
    EXPECT_TRUE(log.has_containing(LM_ERROR, "Failed to decrypt object \"" + key + "\" at offset " + line))
        << log.all();
  }
  void expect_refused(const std::string& line) { expect_refused(*client_, "object", line); }

  std::string chunk_at(uint64_t number) const {
    return std::to_string(encrypted_header_size + number * (plain_chunk_size + chunk_overhead(GetParam())));
  }

  const std::shared_ptr<Memory_Pool> pool_ = std::make_shared<Memory_Pool>();
  const std::unique_ptr<Client_IO_Base> client_ = client();
};

std::string cipher_name(const ::testing::TestParamInfo<Encryption_Algorithm>& info) {
  static const char* const names[] = {"None", "Aes128Cbc", "Aes192Cbc", "Aes256Cbc", "Aes256Gcm"};
  return names[info.param];
}
INSTANTIATE_TEST_SUITE_P(Ciphers, Encrypted,
                         ::testing::Values(ENCRYPT_AES_128_CBC, ENCRYPT_AES_192_CBC, ENCRYPT_AES_256_CBC,
                                           ENCRYPT_AES_256_GCM),
                         cipher_name);

const char bad_chunk[] = ": it is damaged, or was put in the place of another.\n";
const char bad_header[] = "0: wrong key or damaged header.\n";

TEST_P(Encrypted, ObjectsOfAllLengthsComeBack) {
  for (const size_t n : {size_t(0), size_t(1), size_t(15), size_t(16), size_t(17), plain_chunk_size - 1,
                         plain_chunk_size, plain_chunk_size + 1, 3 * plain_chunk_size, 20 * plain_chunk_size + 5}) {
    const std::string key = "object " + std::to_string(n);
    store(key, content(n));
    EXPECT_EQ(fetch(key), content(n)) << n;
    const size_t chunks = std::max<size_t>((n + plain_chunk_size - 1) / plain_chunk_size, 1);
    EXPECT_EQ(stored(key).size(), encrypted_header_size + n + chunks * chunk_overhead(GetParam()));
  }
}

// The object of doc/encryption.md under each cipher, made by another program after that description alone.
const char* const written_elsewhere[] = {
    "",
    "54455353454e43310100000000000100404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f"
    "cc6ecb0c5f2deb25c52bcceec3ecb460808182838485868788898a8b8c8d8e8fa4b5758ef860a4cc26db88a39604e79e"
    "1575d9e7b6b1ad045d4669faf9abd773f042cbe411a7820ad8a1f214a8919064e4c962a95d",
    "54455353454e43310200000000000100404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f"
    "9d7dd43bcf24a0c0a0d50a0c0232903f808182838485868788898a8b8c8d8e8f3608c2effcd8ac1db18b773edf09bf26"
    "bee6011ad803e78c572827dbb919c60699ee6d49c00669e6f9f865d4b155b44fb16a14e49d",
    "54455353454e43310300000000000100404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f"
    "88bf41ae5a746337c9e3138c636d4aea808182838485868788898a8b8c8d8e8f675f66a4793761cec89c9860b7768291"
    "38b4e2b8eaa666f7865f8fc8923b0a4239ead26c166a96ee5d751a44005b413fd498696b7d",
    "54455353454e43310400000000000100404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f"
    "79921f9556968fafe87fb72b5ccc836f1014a036952c3e1d80a74879bb1e45428e3e3fe83bf2eb40a59c3a309fe961ce"
    "4d798303cd"};

TEST_P(Encrypted, AnObjectThatAnotherProgramMadeIsRead) {
  std::string bytes;
  for (const char* at = written_elsewhere[GetParam()]; *at != '\0'; at += 2)
    bytes += static_cast<char>(std::stoi(std::string(at, 2), nullptr, 16));
  client_io::Pool_Encryption encryption{GetParam(), {}, "0123456789abcdef"};
  for (size_t i = 0; i < client_io::key_size(GetParam()); ++i) encryption.key += static_cast<char>(i);
  Encrypted_Client_IO reading(std::make_unique<Memory_Client_IO>(pool_), encryption);
  ASSERT_TRUE(reading.start());
  stored("pvc-1/object") = bytes;
  EXPECT_EQ(fetch(reading, "pvc-1/object"), "twenty-one bytes here");
}

TEST_P(Encrypted, ItDoesNotMatterHowTheBytesAreHandedOver) {
  const std::string bytes = content(3 * plain_chunk_size + 100);
  for (const size_t portion : {size_t(1000), plain_chunk_size - 1, plain_chunk_size, plain_chunk_size + 1}) {
    const std::string key = std::to_string(portion);
    const auto writer = client_->create(key);
    for (size_t at = 0; at < bytes.size(); at += portion)
      ASSERT_TRUE(writer->write(bytes.data() + at, std::min(portion, bytes.size() - at)));
    ASSERT_TRUE(writer->commit());
    EXPECT_TRUE(fetch(key) == bytes) << portion;
  }
}

TEST_P(Encrypted, ReadsAtAnyOffset) {
  const std::string bytes = content(5 * plain_chunk_size + 1234);
  store("object", bytes);
  const auto reader = client_->open("object");
  ASSERT_TRUE(reader);
  for (const size_t offset : {size_t(0), size_t(1), plain_chunk_size - 1, plain_chunk_size, 3 * plain_chunk_size + 7,
                              5 * plain_chunk_size + 1233})
    for (const size_t n : {size_t(1), size_t(100), plain_chunk_size, 2 * plain_chunk_size + 3, bytes.size()}) {
      std::string got(n, '\0');
      const ssize_t size = reader->read(offset, got.data(), n);
      ASSERT_GE(size, 0);
      got.resize(static_cast<size_t>(size));
      EXPECT_TRUE(got == bytes.substr(offset, n)) << offset << " " << n;
    }
}

TEST_P(Encrypted, NothingOfTheContentShowsAndNoTwoObjectsAreAlike) {
  store("object", std::string(1000, 'x'));
  store("other", std::string(1000, 'x'));
  EXPECT_EQ(stored("object").find("xxx"), std::string::npos);
  EXPECT_NE(stored("object").substr(16, 32), stored("other").substr(16, 32));
  EXPECT_NE(stored("object").substr(64), stored("other").substr(64));
}

TEST_P(Encrypted, AnotherKeyReadsNothing) {
  store("object", "bytes");
  expect_refused(*client('K'), "object", bad_header);
}

TEST_P(Encrypted, AnotherIvReadsNothing) {
  store("object", "bytes");
  expect_refused(*client('k', "IV"), "object", bad_header);
  expect_refused(*client('k', ""), "object", bad_header);
}

TEST_P(Encrypted, AnotherCipherIsTold) {
  store("object", "bytes");
  const auto other = GetParam() == ENCRYPT_AES_256_GCM ? ENCRYPT_AES_256_CBC : ENCRYPT_AES_256_GCM;
  expect_refused(*client('k', "iv", other), "object",
                 "0: it has cipher " + std::to_string(GetParam()) + ", its pool " + std::to_string(other) + ".\n");
}

TEST_P(Encrypted, EveryFlippedBitIsFound) {
  store("object", "twenty-one bytes here");
  const std::string whole = stored("object");
  for (size_t i = 0; i < 8 * whole.size(); ++i) {
    SCOPED_TRACE(i);
    stored("object")[i / 8] = static_cast<char>(whole[i / 8] ^ (1 << i % 8));
    expect_refused(i / 8 < encrypted_header_size ? "0: " : chunk_at(0) + bad_chunk);
    stored("object") = whole;
  }
}

TEST_P(Encrypted, EveryTruncationIsFound) {
  store("object", content(2 * plain_chunk_size + 50));
  const std::string whole = stored("object");
  for (size_t n = 0; n < whole.size(); n += n < 200 || n > whole.size() - 200 ? 1 : 997) {
    SCOPED_TRACE(n);
    stored("object") = whole.substr(0, n);
    expect_refused("");
  }
  // At the end of a chunk nothing shows but that no last one comes.
  stored("object") = whole.substr(0, encrypted_header_size + plain_chunk_size + chunk_overhead(GetParam()));
  expect_refused(chunk_at(0) + bad_chunk);
}

TEST_P(Encrypted, WhatIsAppendedIsFound) {
  store("object", "bytes");
  stored("object") += "x";
  expect_refused(chunk_at(0) + bad_chunk);
}

TEST_P(Encrypted, ChunksCannotBeExchangedDroppedOrRepeated) {
  store("object", content(4 * plain_chunk_size));
  const std::string whole = stored("object");
  const size_t full = plain_chunk_size + chunk_overhead(GetParam());
  const auto chunk = [&](size_t number) { return whole.substr(encrypted_header_size + number * full, full); };
  const std::string header = whole.substr(0, encrypted_header_size);
  stored("object") = header + chunk(1) + chunk(0) + chunk(2) + chunk(3);
  expect_refused(chunk_at(0) + bad_chunk);
  stored("object") = header + chunk(0) + chunk(2) + chunk(3);
  expect_refused(chunk_at(2) + bad_chunk);  // the last one is looked at first
  stored("object") = header + chunk(0) + chunk(1) + chunk(1) + chunk(3);
  expect_refused(chunk_at(2) + bad_chunk);
  stored("object") = header + chunk(0) + chunk(1) + chunk(2) + chunk(2) + chunk(3);
  expect_refused(chunk_at(4) + bad_chunk);
}

TEST_P(Encrypted, AChunkOfAnotherObjectIsFound) {
  store("object", content(2 * plain_chunk_size));
  store("other", content(2 * plain_chunk_size));
  stored("object").replace(encrypted_header_size, plain_chunk_size, stored("other"), encrypted_header_size,
                           plain_chunk_size);
  expect_refused(chunk_at(0) + bad_chunk);
}

TEST_P(Encrypted, TheHeaderOfAnotherObjectIsFound) {
  store("object", "bytes");
  store("other", "bytes");
  stored("object").replace(0, encrypted_header_size, stored("other"), 0, encrypted_header_size);
  expect_refused(chunk_at(0) + bad_chunk);
}

TEST_P(Encrypted, AnObjectIsReadUnderItsOwnKeyOnly) {
  store("set/1/object", "bytes");
  stored("object") = stored("set/1/object");
  expect_refused(chunk_at(0) + bad_chunk);
}

TEST_P(Encrypted, AnObjectThatIsNotEncryptedIsRefused) {
  for (const std::string& plain : {std::string(), std::string("x"), std::string(1000, 'x')}) {
    stored("object") = plain;
    expect_refused("0: it is not encrypted, but its pool is.\n");
  }
}

TEST_P(Encrypted, DamageCostsOnlyTheReadsThatTouchIt) {
  const std::string bytes = content(4 * plain_chunk_size);
  store("object", bytes);
  stored("object")[std::stoul(chunk_at(1)) + 1000] ^= 1;
  const auto reader = client_->open("object");
  ASSERT_TRUE(reader);
  std::string got(plain_chunk_size, '\0');
  EXPECT_EQ(reader->read(0, got.data(), got.size()), static_cast<ssize_t>(got.size()));
  EXPECT_EQ(reader->read(2 * plain_chunk_size, got.data(), got.size()), static_cast<ssize_t>(got.size()));
  Log_Capture log;
  EXPECT_EQ(reader->read(2 * plain_chunk_size - 1, got.data(), 1), -1);
  EXPECT_EQ(errno, EBADMSG);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to decrypt object \"object\" at offset " + chunk_at(1) + bad_chunk))
      << log.all();
}

TEST_P(Encrypted, AListingTellsPlainSizes) {
  store("a", "");
  store("b", content(plain_chunk_size));
  store("c", content(plain_chunk_size + 1));
  stored("d") = "not encrypted";
  std::vector<std::pair<std::string, uint64_t>> found;
  EXPECT_TRUE(client_->list("", [&](const Client_IO_Base::Object_Info& info) {
    found.emplace_back(info.key, info.size);
    return true;
  }));
  EXPECT_EQ(found, (decltype(found){{"a", 0}, {"b", plain_chunk_size}, {"c", plain_chunk_size + 1}, {"d", 0}}));
}

TEST_P(Encrypted, AFailureOfTheStorageIsPassedOnWithItsOneLine) {
  test_support::Fault_Plan plan(test_support::Fault_Plan::WRITE, 1, ENOSPC);  // the first is that of the header
  Memory_Client_IO memory(pool_);
  Encrypted_Client_IO failing(std::make_unique<test_support::Faulty_Client_IO>(memory, plan),
                              {GetParam(), secure_string(client_io::key_size(GetParam()), 'k'), ""});
  ASSERT_TRUE(failing.start());
  const auto writer = failing.create("object");
  ASSERT_TRUE(writer);
  Log_Capture log;
  const std::string bytes = content(3 * plain_chunk_size);
  EXPECT_FALSE(writer->write(bytes.data(), bytes.size()));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(writer->commit());
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(log.lines().size(), 1u) << log.all();
}

}  // namespace
