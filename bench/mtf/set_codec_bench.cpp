// What the set format costs: per small file, and per byte of a large one.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "mtf/core/byte_sink.h"
#include "mtf/core/byte_source.h"
#include "mtf/core/checksum.h"
#include "mtf/core/set_reader.h"
#include "mtf/core/set_writer.h"

namespace {

/// One frame, used again and again.
class Sink : public MTF::Byte_Sink {
 public:
  bool space(char*& at, size_t& avail) override {
    at = &frame_[used_];
    avail = frame_.size() - used_;
    return true;
  }
  bool advance(size_t n) override {
    offset_ += n;
    used_ = (used_ + n) % frame_.size();
    return true;
  }
  uint64_t offset() const override { return offset_; }

 private:
  std::string frame_ = std::string(1 << 20, '\0');
  size_t used_ = 0;
  uint64_t offset_ = 0;
};

class Kept : public MTF::Byte_Sink {
 public:
  bool space(char*& at, size_t& avail) override {
    at = piece_;
    avail = sizeof piece_;
    return true;
  }
  bool advance(size_t n) override {
    bytes.append(piece_, n);
    return true;
  }
  uint64_t offset() const override { return bytes.size(); }
  std::string bytes;

 private:
  char piece_[65536];
};

class Source : public MTF::Byte_Source {
 public:
  explicit Source(const std::string& bytes) : bytes_(bytes) {}
  ssize_t read(uint64_t offset, char* buf, size_t n) override {
    const size_t part = offset >= bytes_.size() ? 0 : std::min<uint64_t>(n, bytes_.size() - offset);
    std::memcpy(buf, bytes_.data() + offset, part);
    return static_cast<ssize_t>(part);
  }

 private:
  const std::string& bytes_;
};

MTF::Entry make_entry() {
  MTF::Entry entry;
  entry.path = "some/directory/of/middling/depth/holiday-picture-0815.jpeg";
  entry.stat.mode = S_IFREG | 0644;
  entry.stat.mtime = {1700000000, 123456789};
  return entry;
}

void start(MTF::Set_Writer& writer) {
  MTF::Set_Header header;
  header.software_name = "bench";
  writer.begin(header);
  writer.volume({"/srv", "host", 0});
}

void put(MTF::Set_Writer& writer, const MTF::Entry& entry, uint64_t size) {
  char* at;
  size_t avail;
  writer.begin_file(entry, size);
  while (writer.room(at, avail) && avail > 0) writer.filled(avail);
  writer.end_file();
}

void write_files(benchmark::State& state) {
  const uint64_t size = static_cast<uint64_t>(state.range(0));
  const MTF::Entry entry = make_entry();
  Sink sink;
  MTF::Set_Writer writer(sink);
  start(writer);
  for (auto _ : state) put(writer, entry, size);
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(write_files)->Arg(0)->Arg(500)->Arg(10000)->Arg(64 << 20);

void read_files(benchmark::State& state) {
  Kept medium;
  MTF::Set_Writer writer(medium);
  start(writer);
  const MTF::Entry entry = make_entry();
  for (int i = 0; i < 10000; ++i) put(writer, entry, 500);
  writer.end();
  Source source(medium.bytes);
  MTF::Set_Reader reader(source);
  MTF::Set_Header header;
  MTF::Set_Item item;
  reader.read_header(header);
  for (auto _ : state) {
    if (!reader.next(item)) state.SkipWithError(reader.error().c_str());
    if (item.type == MTF::Set_Item::END) reader.read_header(header);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(read_files);

void checksum(benchmark::State& state) {
  const std::string bytes(static_cast<size_t>(state.range(0)), 'x');
  MTF::Xor_Checksum sum;
  for (auto _ : state) {
    sum.add(bytes.data(), bytes.size());
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(checksum)->Arg(1000)->Arg(1 << 20);

}  // namespace

BENCHMARK_MAIN();
