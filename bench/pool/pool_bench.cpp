// One medium through the writer and the reader, beside plain write(2), read(2) and libzstd's own threads, in one run.
// Data: POOL_BENCH_DATA names a file (its first 512 MiB are used); without it a mixture of text and noise is made.
// Pool: POOL_BENCH_DIR, or /tmp. Nothing is synced, so that the disk does not count. POOL_BENCH_S3 names an S3 service
// with the bucket "bucket" and the keys "S3RVER"; without it the benchmarks of "s3" are skipped. bench/pool/run starts
// one.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>
#include <zstd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "client_io/client_io_factory.h"
#include "kolt/pool_info.h"
#include "mtf_backup/set/frame_workers.h"
#include "mtf_backup/set/medium_reader.h"
#include "mtf_backup/set/medium_writer.h"

namespace {

using namespace MTF_BACKUP;

constexpr size_t data_size = size_t(512) << 20;

std::string made_data() {
  std::string bytes(data_size, '\0');
  std::minstd_rand random(1);
  size_t at = 0;
  while (at + 64 < bytes.size()) {
    char line[64];
    const int n = snprintf(line, sizeof line, "%08x entry %u of %u\n", static_cast<unsigned>(random()),
                           static_cast<unsigned>(random() % 1000), static_cast<unsigned>(random() % 100));
    memcpy(bytes.data() + at, line, static_cast<size_t>(n));
    at += static_cast<size_t>(n);
  }
  return bytes;
}

std::string read_data(const char* path) {
  std::string bytes(data_size, '\0');
  FILE* file = fopen(path, "rb");
  const size_t got = file == nullptr ? 0 : fread(bytes.data(), 1, bytes.size(), file);
  if (file != nullptr) fclose(file);
  bytes.resize(got);
  return bytes;
}

const std::string& data() {
  static const char* const path = getenv("POOL_BENCH_DATA");
  static const std::string bytes = path != nullptr ? read_data(path) : made_data();
  return bytes;
}

std::string pool_dir() {
  const char* dir = getenv("POOL_BENCH_DIR");
  return std::string(dir != nullptr ? dir : "/tmp") + "/pool_bench." + std::to_string(getpid());
}

Client_IO_Base::Options options() {
  Client_IO_Base::Options made;
  made.flush_after_write = false;
  made.overwrite = true;
  return made;
}

enum Scheme { FILE_POOL, S3_POOL };

const char* s3_endpoint() {
  return getenv("POOL_BENCH_S3");
}

std::shared_ptr<Client_IO_Base> make_client(Scheme scheme) {
  Pool_Info pool;
  pool.url = scheme == FILE_POOL ? "file://" + pool_dir() : "s3://bucket/bench";
  if (scheme == S3_POOL)
    pool.default_s3 = {{"endpoint", s3_endpoint()}, {"access_key_id", "S3RVER"}, {"secret_access_key", "S3RVER"}};
  return make_client_io(pool, "", options());
}

struct Pool {
  explicit Pool(Scheme scheme) : client(make_client(scheme)) { (void)workers.open(); }
  ~Pool() {
    (void)client->list("", [this](const Client_IO_Base::Object_Info& info) { return client->remove(info.key); });
    rmdir(pool_dir().c_str());
  }
  const std::shared_ptr<Client_IO_Base> client;
  Frame_Workers workers;
};

// Whether there is no service to measure.
bool skip(benchmark::State& state, Scheme scheme) {
  if (scheme == FILE_POOL || s3_endpoint() != nullptr) return false;
  state.SkipWithError("POOL_BENCH_S3 is not set");
  return true;
}

void finish(benchmark::State& state, uint64_t stored) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data().size()));
  state.counters["ratio"] = static_cast<double>(data().size()) / static_cast<double>(stored);
}

bool append(Medium_Writer& writer, std::string_view bytes) {
  while (!bytes.empty()) {
    char* at;
    size_t avail;
    if (!writer.space(at, avail)) return false;
    const size_t n = std::min(avail, bytes.size());
    memcpy(at, bytes.data(), n);
    if (!writer.advance(n)) return false;
    bytes.remove_prefix(n);
  }
  return true;
}

bool write_medium(Pool& pool, const Medium_Id& id, int level, std::vector<Stored_Object>& objects) {
  Medium_Writer writer(*pool.client, id, level, pool.workers);
  if (!writer.open() || !append(writer, data()) || !writer.finish()) return false;
  objects = writer.objects();
  return true;
}

Medium_Id id_of(const benchmark::State& state) {
  return {"set/0000000001.1", "uuid", 0, static_cast<Compression_Method>(state.range(0))};
}

void BM_MediumWriter(benchmark::State& state) {
  Pool pool(FILE_POOL);
  std::vector<Stored_Object> objects(1);
  data();
  for (auto _ : state)
    if (!write_medium(pool, id_of(state), static_cast<int>(state.range(1)), objects))
      state.SkipWithError("write failed");
  finish(state, objects[0].size);
}

void BM_MediumReader(benchmark::State& state) {
  Pool pool(FILE_POOL);
  std::vector<Stored_Object> objects(2);
  if (!write_medium(pool, id_of(state), static_cast<int>(state.range(1)), objects)) state.SkipWithError("write failed");
  for (auto _ : state) {
    Medium_Reader reader(*pool.client, id_of(state), objects[0].size, objects[1].size, pool.workers);
    if (!reader.open()) state.SkipWithError("open failed");
    Frame_View view;
    for (uint64_t offset = 0; offset < reader.size(); offset += view.size())
      if (!reader.view(offset, frame_size, view)) state.SkipWithError("read failed");
  }
  finish(state, objects[0].size);
}

// One object as a driver takes it, without frames.
bool write_object(Client_IO_Base& client) {
  const std::unique_ptr<Client_IO_Base::Writer> writer = client.create("object");
  for (size_t at = 0; writer && at < data().size(); at += frame_size)
    if (!writer->write(data().data() + at, std::min(frame_size, data().size() - at))) return false;
  return writer && writer->commit();
}

void BM_ObjectWrite(benchmark::State& state) {
  const Scheme scheme = static_cast<Scheme>(state.range(0));
  if (skip(state, scheme)) return;
  Pool pool(scheme);
  data();
  for (auto _ : state)
    if (!write_object(*pool.client)) state.SkipWithError("write failed");
  finish(state, data().size());
}

void BM_ObjectRead(benchmark::State& state) {
  const Scheme scheme = static_cast<Scheme>(state.range(0));
  if (skip(state, scheme)) return;
  Pool pool(scheme);
  if (!write_object(*pool.client)) state.SkipWithError("write failed");
  std::vector<char> buffer(frame_size);
  for (auto _ : state) {
    const std::unique_ptr<Client_IO_Base::Reader> reader = pool.client->open("object");
    for (uint64_t at = 0; reader && at < reader->size(); at += frame_size)
      if (reader->read(at, buffer.data(), frame_size) < 0) state.SkipWithError("read failed");
  }
  finish(state, data().size());
}

void BM_PlainWrite(benchmark::State& state) {
  const std::string path = pool_dir() + ".plain";
  data();
  for (auto _ : state) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    for (size_t at = 0; at < data().size(); at += frame_size)
      if (write(fd, data().data() + at, std::min(frame_size, data().size() - at)) < 0)
        state.SkipWithError("write failed");
    close(fd);
  }
  unlink(path.c_str());
  finish(state, data().size());
}

void BM_PlainRead(benchmark::State& state) {
  const std::string path = pool_dir() + ".plain";
  int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
  if (write(fd, data().data(), data().size()) < 0) state.SkipWithError("write failed");
  std::vector<char> buffer(frame_size);
  for (auto _ : state)
    for (off_t at = 0; at < static_cast<off_t>(data().size()); at += frame_size)
      if (pread(fd, buffer.data(), frame_size, at) < 0) state.SkipWithError("read failed");
  close(fd);
  unlink(path.c_str());
  finish(state, data().size());
}

// What "zstd -<level> -T2" does, writing to a file.
void BM_ZstdThreads(benchmark::State& state) {
  const std::string path = pool_dir() + ".zst";
  std::vector<char> out(ZSTD_CStreamOutSize());
  uint64_t stored = 0;
  data();
  for (auto _ : state) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ZSTD_CCtx* const context = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(context, ZSTD_c_compressionLevel, static_cast<int>(state.range(0)));
    ZSTD_CCtx_setParameter(context, ZSTD_c_nbWorkers, 2);
    ZSTD_inBuffer in{data().data(), data().size(), 0};
    stored = 0;
    for (size_t left = 1; left != 0;) {
      ZSTD_outBuffer piece{out.data(), out.size(), 0};
      left = ZSTD_compressStream2(context, &piece, &in, ZSTD_e_end);
      if (ZSTD_isError(left) || write(fd, out.data(), piece.pos) < 0) state.SkipWithError("failed");
      stored += piece.pos;
    }
    ZSTD_freeCCtx(context);
    close(fd);
  }
  unlink(path.c_str());
  finish(state, stored);
}

BENCHMARK(BM_PlainWrite)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MediumWriter)
    ->Args({COMPR_NONE, 0})
    ->ArgNames({"method", "level"})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZstdThreads)->Arg(1)->ArgName("level")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MediumWriter)
    ->Args({COMPR_ZSTD, 1})
    ->Args({COMPR_AUTO, 1})
    ->ArgNames({"method", "level"})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainRead)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MediumReader)
    ->Args({COMPR_NONE, 0})
    ->Args({COMPR_ZSTD, 1})
    ->ArgNames({"method", "level"})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK(BM_ObjectWrite)->Arg(FILE_POOL)->Arg(S3_POOL)->ArgName("s3")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ObjectRead)->Arg(FILE_POOL)->Arg(S3_POOL)->ArgName("s3")->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
