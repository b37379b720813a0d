// Catalogs from outside: as they come, and with checks that fit, as one who makes a hostile set would write them.
#include <zstd.h>

#include "../test/support/memory_client_io.h"
#include "ace/Log_Msg.h"
#include "mtf_backup/set/catalog_format.h"
#include "mtf_backup/set/catalog_reader.h"
#include "mtf_backup/set/hash.h"
#include "mtf_backup/set/medium.h"
#include "mtf_backup/set/wire.h"

namespace {

using namespace MTF_BACKUP;

constexpr char dir[] = "set/0000000001.1";

void seal(std::string& bytes, uint64_t seed) {
  put(bytes, hash64(bytes, seed));
}

// A catalog of one block. The input: where to cut the rest in two (2 bytes), the number of entries (1), the plain bytes
// of the block, those of the index of blocks.
std::string sealed_catalog(std::string_view input) {
  const size_t cut = std::min<size_t>(get_at<uint16_t>(input, 0), input.size() - 3);
  const uint32_t entries = static_cast<uint8_t>(input[2]);
  const std::string_view plain = input.substr(3, cut);
  std::string index(input.substr(3 + cut));
  const uint64_t identity = object_identity("uuid", dir, catalog_name);
  std::string packed(ZSTD_compressBound(plain.size()), '\0');
  packed.resize(ZSTD_compress(packed.data(), packed.size(), plain.data(), plain.size(), 1));

  std::string object(catalog_magic, sizeof catalog_magic - 1);
  seal(object, identity);
  std::string header;
  put(header, static_cast<uint32_t>(packed.size()));
  put(header, static_cast<uint32_t>(plain.size()));
  put(header, entries);
  put(header, uint32_t(0));
  put(header, hash64(packed, hash64(header, block_seed(identity, 0))));
  object += header + packed;
  seal(index, identity);
  std::string trailer;
  put(trailer, static_cast<uint64_t>(object.size()));
  put(trailer, static_cast<uint64_t>(index.size()));
  put(trailer, uint64_t(1));
  put(trailer, uint64_t(1));
  seal(trailer, identity);
  return object + index + trailer;
}

void read_catalog(const std::string& object) {
  const auto pool = std::make_shared<test_support::Memory_Pool>();
  pool->objects[std::string(dir) + "/" + catalog_name] = object;
  test_support::Memory_Client_IO client(pool);
  Catalog_Reader reader(client, dir, "uuid", object.size());
  if (!reader.open()) return;
  Catalog_Entry entry;
  while (reader.next(entry) == 1) {
  }
  (void)reader.find(0, "a/b", entry);
  (void)reader.seek(0, "", true);
  while (reader.next(entry) == 1) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  read_catalog(std::string(input));
  if (size >= 3) read_catalog(sealed_catalog(input));
  return 0;
}
