#pragma once

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>

#include <string>

#include "kolt/pool_info.h"
#include "mtf_backup/set/catalog_reader.h"
#include "mtf_backup/test/golden_listing.h"
#include "mtf_backup/test/mover_fixture.h"
#include "support/attributes.h"

namespace mover_test {

inline const std::string golden_dir = TEST_DATA_DIR "/golden-sets";
/// The sources of the sets lay here.
inline const std::string golden_root = "/tmp/tessarin-golden";
inline const std::string golden_source = golden_root + "/source";

/// A resource of the golden pool, and the numbers of its sets.
struct Golden {
  const char* resource;
  unsigned compression;
  unsigned sets;
  Encryption_Algorithm cipher = ENCRYPT_NONE;
  bool rare = false;  ///< holds what not every filesystem takes, and what a backup could not read whole
};
inline const Golden goldens[] = {{"none", COMPR_NONE, 1},
                                 {"auto", COMPR_AUTO, 1},
                                 {"lzop", COMPR_LZOP, 1},
                                 {"zstd", COMPR_ZSTD, 1},
                                 {"chain", COMPR_ZSTD, 4},
                                 {"gcm", COMPR_ZSTD, 2, ENCRYPT_AES_256_GCM},
                                 {"cbc", COMPR_NONE, 1, ENCRYPT_AES_256_CBC},
                                 {"rare", COMPR_ZSTD, 1, ENCRYPT_NONE, true}};

class Golden_Sets : public Mover_Fixture, public ::testing::WithParamInterface<Golden> {
 protected:
  MTF_BACKUP::Channel_Factory_var make_channels(test_support::Fault_Plan*) const override {
    Pool_Info pool;
    pool.url = "file://" + golden_dir + "/pool";
    pool.cipher = GetParam().cipher;
    if (pool.cipher != ENCRYPT_NONE) pool.key = "0123456789abcdef0123456789abcdef";
    return MTF_BACKUP::make_channel_factory(pool, std::string("golden/") + GetParam().resource,
                                            Client_IO_Base::Options());
  }

  static std::string listing_file(unsigned seq, const char* what) {
    return golden_dir + "/listings/" + GetParam().resource + "-" + std::to_string(seq) + "." + what;
  }

  std::string list_catalog(unsigned seq) const {
    const std::shared_ptr<Client_IO_Base> storage = make_channels(nullptr)->storage();
    MTF_BACKUP::Set_Id id;
    MTF_BACKUP::Commit_Record record;
    if (!MTF_BACKUP::Set_Store(storage).find("volume", seq, 0, id, record)) return "no set";
    const MTF_BACKUP::Stored_Object* object = record.find("catalog");
    MTF_BACKUP::Catalog_Reader catalog(*storage, id.dir(), record.set_uuid, object ? object->size : 0);
    if (!catalog.open()) return "no catalog";
    std::string text;
    MTF_BACKUP::Catalog_Entry entry;
    int got;
    while ((got = catalog.next(entry)) == 1) text += list_entry(entry);
    return got == 0 ? text : "damaged";
  }

  std::string restored_tree(unsigned seq) {
    for (const auto& entry : std::filesystem::directory_iterator(target_)) std::filesystem::remove_all(entry.path());
    test_support::Log_Capture log;
    if (!restore({.seq = seq, .select = {golden_source}, .rules = {{golden_source, target_}}})) return log.all();
    return list_tree(target_);
  }

  bool target_keeps_attributes() const {
    return setxattr(target_.c_str(), "user.probe", "", 0, 0) == 0 && removexattr(target_.c_str(), "user.probe") == 0;
  }
  /// Devices, capabilities and access lists.
  bool target_takes_rare_kinds() const {
    const std::string probe = dir_ / "probe";
    const auto keeps = [&](const char* name, const std::string& value) {
      return setxattr(probe.c_str(), name, value.data(), value.size(), 0) == 0;
    };
    return mknod(probe.c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0 && unlink(probe.c_str()) == 0 &&
           mknod(probe.c_str(), S_IFREG | 0600, 0) == 0 && keeps("security.capability", test_support::capability) &&
           keeps("system.posix_acl_access", test_support::access_list);
  }
};

}  // namespace mover_test
