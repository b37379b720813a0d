#include "mtf_backup/set/medium.h"

#include "mtf_backup/set/hash.h"

namespace MTF_BACKUP {

std::string hash_text(XXH128_hash_t hash) {
  XXH128_canonical_t bytes;
  XXH128_canonicalFromHash(&bytes, hash);
  std::string text;
  for (const unsigned char byte : bytes.digest)
    text.append({"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]});
  return text;
}

namespace {

std::string channel_name(unsigned channel, const char* ending) {
  std::string number = std::to_string(channel);
  if (number.size() < 3) number.insert(0, 3 - number.size(), '0');
  return "channel-" + number + ending;
}

const char* ending(Compression_Method compression) {
  if (compression == COMPR_NONE) return ".mtf";
  return compression == COMPR_LZOP ? ".mtf.lzo" : ".mtf.zst";
}

}  // namespace

Compression_Method stored_form(Compression_Method compression) {
  return compression == COMPR_AUTO ? COMPR_ZSTD : compression;
}

std::string medium_name(const Medium_Id& id) {
  return channel_name(id.channel, ending(id.compression));
}

std::string index_name(const Medium_Id& id) {
  return channel_name(id.channel, ".index");
}

uint64_t object_identity(const std::string& set_uuid, const std::string& set_dir, const std::string& name) {
  return hash64(set_uuid + '\0' + set_dir + '\0' + name, 0);
}

}  // namespace MTF_BACKUP
