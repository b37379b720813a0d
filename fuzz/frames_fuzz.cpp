// Media from outside, with indexes whose checks fit, as one who makes a hostile set would write them: what the reader
// gives out is what the index tells, or nothing.
#include <cstdlib>

#include "../test/support/memory_client_io.h"
#include "ace/Log_Msg.h"
#include "mtf_backup/set/frame.h"
#include "mtf_backup/set/frame_workers.h"
#include "mtf_backup/set/hash.h"
#include "mtf_backup/set/medium.h"
#include "mtf_backup/set/medium_reader.h"
#include "mtf_backup/set/wire.h"

namespace {

using namespace MTF_BACKUP;

struct Hostile_Medium {
  std::string medium;
  std::string index;
};

// The input: how the medium is compressed (1 byte), by how much the last plain size is less than a whole frame (3),
// whether the hashes are right (1); then frames, each its length (2 bytes) and its bytes.
Hostile_Medium make(std::string_view input, const Medium_Id& id) {
  const uint32_t last_plain = 1 + get_at<uint32_t>(input, 1) % 0x1000000 % frame_size;
  const bool right_hashes = (get_at<uint8_t>(input, 4) & 1) == 0;
  input.remove_prefix(5);
  const uint64_t identity = object_identity(id.set_uuid, id.set_dir, index_name(id));
  Hostile_Medium made;
  std::string records;
  uint64_t frames = 0;
  while (input.size() > 2) {
    const size_t size = std::min<size_t>(get_at<uint16_t>(input, 0), input.size() - 2);
    const std::string_view frame = input.substr(2, size);
    input.remove_prefix(2 + size);
    const bool last = input.size() <= 2;
    std::string record;
    put(record, uint64_t(made.medium.size()));
    put(record, static_cast<uint32_t>(size));
    put(record, last ? last_plain : static_cast<uint32_t>(frame_size));
    put(record, right_hashes ? hash64(frame, 0) : 0);
    put(record, hash64(record, identity + 1 + frames++));
    records += record;
    made.medium += frame;
  }
  made.index = "TESSIDX1";
  put(made.index, static_cast<uint32_t>(frame_size));
  put(made.index, static_cast<uint32_t>(id.compression == COMPR_AUTO ? COMPR_ZSTD : id.compression));
  put(made.index, uint64_t(0));
  put(made.index, hash64(made.index, identity));
  std::string trailer;
  put(trailer, frames);
  put(trailer, frames == 0 ? 0 : (frames - 1) * frame_size + last_plain);
  put(trailer, uint64_t(made.medium.size()));
  put(trailer, hash64(trailer, identity));
  made.index += records + trailer;
  return made;
}

void read_all(Medium_Reader& reader) {
  uint64_t given = 0;
  uint64_t sum = 0;
  for (uint64_t at = 0; at < reader.size();) {
    Frame_View view;
    if (!reader.view(at, frame_size, view)) {
      if (view.size() != 0) std::abort();
      at += frame_size - at % frame_size;
      continue;
    }
    if (view.size() == 0 || view.size() > frame_size) std::abort();
    sum += hash64({view.data(), view.size()}, at);  // every byte may be read
    given += view.size();
    at += view.size();
  }
  if (given > reader.size() || (given == 0 && sum != 0)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
  if (size < 8) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  static Frame_Workers workers(1);
  static const bool open = workers.open();
  if (!open) std::abort();
  const Medium_Id id{"set/0000000001.1", "uuid", 0, static_cast<Compression_Method>(data[0] % COMPR_MAX)};
  const Hostile_Medium made = make(input, id);
  const auto pool = std::make_shared<test_support::Memory_Pool>();
  pool->objects[id.set_dir + "/" + medium_name(id)] = made.medium;
  pool->objects[id.set_dir + "/" + index_name(id)] = made.index;
  test_support::Memory_Client_IO client(pool);
  Medium_Reader reader(client, id, made.medium.size(), made.index.size(), workers);
  if (reader.open()) read_all(reader);
  return 0;
}
