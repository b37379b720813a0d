// One backup or restore with plain callbacks, for bench/mover/run, which sets it side by side with tar.
//
//   mover_bench make TREE FILES BYTES
//   mover_bench backup SOURCE POOL none|zstd LEVEL CHANNELS [LAST]
//   mover_bench restore SOURCE POOL TARGET THREADS [NUMBER]
//
// Sets are numbered from 1. LAST is the number of the set before: the new one is then incremental.
// Prints seconds and the peak of the resident memory in MiB.

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string>

#include "json_spirit/json_spirit_value.h"
#include "kolt/pool_info.h"
#include "mtf/fs/path_converter.h"
#include "mtf_backup/mtf_backup.h"
#include "mtf_backup/mtf_restore.h"
#include "mtf_backup/test/posix_callbacks.h"

namespace {

typedef std::chrono::steady_clock Clock;

const char usage[] = "mover_bench make|backup|restore ...\n";

/// Half of the first @a size bytes become random and never come twice, so that nothing is gained by knowing blocks
/// again.
void fill(std::mt19937_64& random, std::string& block, uint64_t size) {
  for (size_t i = 0; i < size; i += 1024)
    for (size_t j = 0; j < 512; j += sizeof(uint64_t)) {
      const uint64_t number = random();
      std::memcpy(&block[i + j], &number, sizeof number);
    }
}

/// Files of all sizes up to twice the mean, twenty to a directory, about half of their bytes compressible.
void make(const std::string& tree, size_t files, uint64_t bytes) {
  std::mt19937_64 random(1);
  std::string block(size_t(1) << 20, '\0');
  for (size_t i = 0; i < block.size(); ++i) block[i] = "volume data "[i % 12];
  for (size_t i = 0; i < files; ++i) {
    const std::string dir = tree + "/d" + std::to_string(i / 2000) + "/e" + std::to_string(i / 20 % 100);
    if (i % 20 == 0) std::filesystem::create_directories(dir);
    std::ofstream file(dir + "/file-" + std::to_string(i), std::ios::binary);
    uint64_t left = files == 1 ? bytes : random() % (2 * bytes / files + 1);
    while (left > 0) {
      const uint64_t n = std::min<uint64_t>(left, block.size());
      fill(random, block, n);
      file.write(block.data(), static_cast<std::streamsize>(n));
      left -= n;
    }
  }
}

MTF_BACKUP::Channel_Factory_var pool_at(const std::string& path) {
  Pool_Info pool;
  pool.url = "file://" + path;
  return MTF_BACKUP::make_channel_factory(pool, "host/resource", Client_IO_Base::Options());
}

bool back_up(const std::string& source, const std::string& pool, const std::string& method, int level, size_t channels,
             unsigned last) {
  MTF::Metadata metadata;
  MTF_Backup backup(MTF::Event_Handler_var(nullptr), metadata, ACE_Log_Msg_Callback_var());
  backup.uuid("bench");
  backup.compression(method == "zstd" ? COMPR_ZSTD : COMPR_NONE);
  backup.compression_level(level);
  backup.channel_num(channels);
  backup.seq(last);
  backup.incremental(last > 0);
  backup.callback_factory(MTF::IBackup_Callback_Factory_var(new mover_test::Posix_Backup_Factory));
  backup.channel_factory(pool_at(pool));
  backup.add_source(source);
  return backup.backup("bench");
}

bool restore(const std::string& source, const std::string& pool, const std::string& target, size_t threads,
             unsigned number) {
  MTF_Restore restore(MTF::Event_Handler_var(nullptr), ACE_Log_Msg_Callback_var());
  restore.seq(number);
  restore.channel_num(threads);
  restore.concurrent(threads);
  restore.path_converter(
      MTF_FS::create_transform_path_converter("/", {{source, target}}, false, MTF::IPath_Converter_var(nullptr)));
  restore.callback_factory(MTF::IRestore_Callback_Factory_var(new mover_test::Posix_Restore_Factory));
  restore.channel_factory(pool_at(pool));
  return restore.restore("bench");
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  const Clock::time_point begin = Clock::now();
  bool ok = false;
  if (args.size() == 4 && args[0] == "make") {
    make(args[1], std::stoul(args[2]), std::stoull(args[3]));
    return EXIT_SUCCESS;
  } else if ((args.size() == 6 || args.size() == 7) && args[0] == "backup") {
    const unsigned last = args.size() == 7 ? static_cast<unsigned>(std::stoul(args[6])) : 0;
    ok = back_up(args[1], args[2], args[3], std::stoi(args[4]), std::stoul(args[5]), last);
  } else if ((args.size() == 5 || args.size() == 6) && args[0] == "restore") {
    const unsigned number = args.size() == 6 ? static_cast<unsigned>(std::stoul(args[5])) : 1;
    ok = restore(args[1], args[2], args[3], std::stoul(args[4]), number);
  } else {
    std::cerr << usage;
  }
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  std::cout << std::chrono::duration<double>(Clock::now() - begin).count() << ' ' << used.ru_maxrss / 1024 << '\n';
  return ok ? EXIT_SUCCESS : EXIT_FAILURE;
}
