// Indexes and media from outside: as they come, and with checks that fit, as one who makes a hostile set would write
// them.
#include "../test/support/memory_client_io.h"
#include "ace/Log_Msg.h"
#include "mtf_backup/set/frame_codec.h"
#include "mtf_backup/set/hash.h"
#include "mtf_backup/set/medium_index.h"
#include "mtf_backup/set/wire.h"

namespace {

using namespace MTF_BACKUP;

const Medium_Id id{"set/0000000001.1", "uuid", 0, COMPR_ZSTD};

void read_index(const std::string& object, uint64_t medium_size) {
  const auto pool = std::make_shared<test_support::Memory_Pool>();
  pool->objects[id.set_dir + "/" + index_name(id)] = object;
  test_support::Memory_Client_IO client(pool);
  Index_Reader reader;
  if (!reader.open(client, id, object.size(), medium_size)) return;
  Frame_Record record;
  Damage damage;
  for (uint64_t n = 0; n < reader.frames(); ++n) {
    if (!reader.record(n, record, damage)) continue;
    if (record.stored_size > frame_capacity || record.plain_size > frame_size ||
        record.stored_offset + record.stored_size > medium_size)
      __builtin_trap();
  }
}

// The input as 24-byte records under seals that fit.
std::string sealed_index(std::string_view input, uint64_t medium_size) {
  const uint64_t identity = object_identity(id.set_uuid, id.set_dir, index_name(id));
  std::string object("TESSIDX1");
  put(object, static_cast<uint32_t>(frame_size));
  put(object, static_cast<uint32_t>(COMPR_ZSTD));
  put(object, uint64_t(0));
  put(object, hash64(object, identity));
  uint64_t frames = 0;
  for (; input.size() >= 24; input.remove_prefix(24)) {
    object += input.substr(0, 24);
    put(object, hash64(input.substr(0, 24), identity + 1 + frames++));
  }
  std::string trailer;
  put(trailer, frames);
  put(trailer, frames * frame_size - (input.empty() || frames == 0 ? 0 : static_cast<uint8_t>(input[0])));
  put(trailer, medium_size);
  put(trailer, hash64(trailer, identity));
  return object + trailer;
}

void decompress(std::string_view input) {
  if (input.size() < 4 || input.size() > frame_capacity) return;
  static Frame_Codec codec;
  static Frame_Buffer frame(new char[frame_capacity]);
  std::memcpy(frame.get(), input.data() + 3, input.size() - 3);
  const size_t plain = (get_at<uint32_t>(input, 0) & 0xffffff) % (frame_size + 1);
  (void)codec.decompress(frame, input.size() - 3, plain, COMPR_ZSTD);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  read_index(std::string(input), size);
  read_index(sealed_index(input, uint64_t(1) << 30), uint64_t(1) << 30);
  decompress(input);
  return 0;
}
