// Objects of an encrypted pool that somebody else wrote, or changed: what is read is what was stored under this key, or
// nothing.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "../test/support/memory_client_io.h"
#include "ace/Log_Msg.h"
#include "client_io/encrypted_client_io.h"
#include "client_io/encrypted_layout.h"

namespace {

constexpr char key[] = "set/0000000001.1/catalog";

struct Pool {
  explicit Pool(Encryption_Algorithm cipher)
      : client(std::make_unique<test_support::Memory_Client_IO>(objects),
               {cipher, secure_string(client_io::key_size(cipher), 'k'), secure_string()}) {
    if (!client.start()) std::abort();
  }
  const std::shared_ptr<test_support::Memory_Pool> objects = std::make_shared<test_support::Memory_Pool>();
  Encrypted_Client_IO client;
};

// Whatever comes is a piece of @a stored, or of anything where that is null.
void read_all(Pool& pool, const std::string* stored) {
  const auto reader = pool.client.open(key);
  if (!reader) return;
  if (stored && reader->size() != stored->size()) std::abort();
  if (!stored && reader->size() > pool.objects->objects[key].size()) std::abort();
  char bytes[5000];
  for (uint64_t at = 0; at < reader->size(); at += sizeof bytes - 7) {
    const ssize_t got = reader->read(at, bytes, sizeof bytes);
    if (got > static_cast<ssize_t>(sizeof bytes)) std::abort();
    if (stored && got > 0 && stored->compare(at, static_cast<size_t>(got), bytes, static_cast<size_t>(got)) != 0)
      std::abort();
  }
}

// The input is stored, then the object is hit at a place, cut or lengthened as its first bytes tell.
void store_and_damage(Pool& pool, const std::string& input) {
  std::string plain = input.substr(std::min<size_t>(input.size(), 4));
  if (!plain.empty() && input[3] & 1)
    while (plain.size() <= client_io::plain_chunk_size) plain += plain;
  pool.objects->objects.clear();
  const auto writer = pool.client.create(key);
  if (!writer || !writer->write(plain.data(), plain.size()) || !writer->commit()) std::abort();
  std::string& object = pool.objects->objects[key];
  const std::string good = object;
  uint32_t what = 0;
  std::memcpy(&what, input.data(), 4);
  const size_t at = (what >> 4) % object.size();
  switch (what & 3) {
    case 0:
      object[at] = static_cast<char>(object[at] ^ (1 << (what >> 2 & 3)));
      break;
    case 1:
      object.resize(at);
      break;
    case 2:
      object.append(input);
      break;
    default:
      object.replace(at, input.size(), input);
  }
  const bool same = object == good;
  read_all(pool, &plain);
  const auto reader = pool.client.open(key);
  std::string back(plain.size(), '\0');
  const bool came = reader && reader->read(0, back.data(), back.size()) == static_cast<ssize_t>(back.size());
  if (came != same) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
  static Pool gcm(ENCRYPT_AES_256_GCM);
  static Pool cbc(ENCRYPT_AES_128_CBC);
  const std::string input(reinterpret_cast<const char*>(data), size);
  for (Pool* pool : {&gcm, &cbc}) {
    pool->objects->objects.clear();
    pool->objects->objects[key] = input;
    read_all(*pool, nullptr);
    if (size >= 4) store_and_damage(*pool, input);
  }
  return 0;
}
