// Commit records from outside: as they come, and under a checksum that fits. What is taken reads the same after it was
// written again.
#include "ace/Log_Msg.h"
#include "mtf_backup/set/commit_record.h"
#include "mtf_backup/set/hash.h"

namespace {

using MTF_BACKUP::Commit_Record;

void read_record(const std::string& text) {
  Commit_Record record;
  if (!record.from_text(text, "commit")) return;
  Commit_Record again;
  if (!again.from_text(record.to_text(), "commit") || again.to_text() != record.to_text()) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
  const std::string input(reinterpret_cast<const char*>(data), size);
  read_record(input);
  read_record("{\"checksum\":\"" + MTF_BACKUP::hash_text(XXH3_128bits(input.data(), input.size())) +
              "\",\"record\":" + input + "}\n");
  return 0;
}
