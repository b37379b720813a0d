// Objects through the encrypting client, in memory, beside the same ciphers as OpenSSL alone does them on the same
// chunks, in one run. Both ways count plain bytes.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cstring>
#include <memory>
#include <string>

#include "client_io/encrypted_client_io.h"
#include "client_io/encrypted_layout.h"

namespace {

using client_io::plain_chunk_size;

constexpr size_t object_size = size_t(64) << 20;
constexpr size_t piece_size = size_t(1) << 20;  // what the data mover hands over at a time

/// One object; what is written stays for the reader.
class Memory : public Client_IO_Base {
 public:
  explicit Memory(std::string& bytes) : bytes_(bytes) {}
  std::unique_ptr<Writer> create(const std::string&) override {
    struct Appender : Writer {
      explicit Appender(std::string& to) : to_(to) { to_.clear(); }
      bool write(const void* data, size_t n) override {
        to_.append(static_cast<const char*>(data), n);
        return true;
      }
      bool commit() override { return true; }
      uint64_t size() const override { return to_.size(); }
      std::string& to_;
    };
    return std::make_unique<Appender>(bytes_);
  }
  std::unique_ptr<Reader> open(const std::string&) override {
    struct Copier : Reader {
      explicit Copier(const std::string& from) : from_(from) {}
      ssize_t read(uint64_t offset, void* to, size_t n) override {
        std::memcpy(to, from_.data() + offset, n);
        return static_cast<ssize_t>(n);
      }
      uint64_t size() const override { return from_.size(); }
      const std::string& from_;
    };
    return std::make_unique<Copier>(bytes_);
  }
  bool list(const std::string&, const List_Callback&) override { return true; }
  bool remove(const std::string&) override { return true; }
  bool sweep(const std::string&) override { return true; }
  void cancel() override {}

 private:
  std::string& bytes_;
};

std::unique_ptr<Encrypted_Client_IO> client(benchmark::State& state, std::string& bytes) {
  const auto cipher = static_cast<Encryption_Algorithm>(state.range(0));
  auto made = std::make_unique<Encrypted_Client_IO>(
      std::make_unique<Memory>(bytes),
      client_io::Pool_Encryption{cipher, secure_string(client_io::key_size(cipher), 'k'), "iv"});
  if (!made->start()) state.SkipWithError("no cipher");
  return made;
}

bool store(Client_IO_Base& to, const std::string& piece) {
  const auto writer = to.create("object");
  for (size_t at = 0; at < object_size; at += piece_size)
    if (!writer->write(piece.data(), piece_size)) return false;
  return writer->commit();
}

void count(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * object_size));
}

void BM_Write(benchmark::State& state) {
  std::string bytes;
  bytes.reserve(object_size + object_size / 512);
  const auto to = client(state, bytes);
  const std::string piece(piece_size, 'p');
  for (auto _ : state)
    if (!store(*to, piece)) state.SkipWithError("write failed");
  count(state);
}

void BM_Read(benchmark::State& state) {
  std::string bytes;
  const auto from = client(state, bytes);
  std::string piece(piece_size, 'p');
  if (!store(*from, piece)) state.SkipWithError("write failed");
  for (auto _ : state) {
    const auto reader = from->open("object");
    for (size_t at = 0; at < object_size; at += piece_size)
      if (reader->read(at, piece.data(), piece_size) < 0) state.SkipWithError("read failed");
  }
  count(state);
}

// The cipher and, for CBC, HMAC-SHA256 over the chunk, with keys that are set once.
void BM_OpenSSL(benchmark::State& state) {
  const bool gcm = state.range(0) == ENCRYPT_AES_256_GCM;
  const EVP_CIPHER* const aes = gcm ? EVP_aes_256_gcm() : state.range(0) == 1 ? EVP_aes_128_cbc() : EVP_aes_256_cbc();
  const std::string plain(plain_chunk_size, 'p');
  std::string stored(plain_chunk_size + 16, '\0');
  unsigned char key[32] = {}, iv[16] = {}, code[32];
  auto* const to = reinterpret_cast<unsigned char*>(stored.data());
  const auto* const from = reinterpret_cast<const unsigned char*>(plain.data());
  EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
  EVP_EncryptInit_ex(context, aes, nullptr, key, iv);
  int n = 0;
  for (auto _ : state)
    for (size_t at = 0; at < object_size; at += plain_chunk_size) {
      EVP_EncryptInit_ex(context, nullptr, nullptr, nullptr, iv);
      EVP_EncryptUpdate(context, to, &n, from, static_cast<int>(plain_chunk_size));
      EVP_EncryptFinal_ex(context, to + n, &n);
      if (!gcm) HMAC(EVP_sha256(), key, sizeof key, to, plain_chunk_size, code, nullptr);
    }
  EVP_CIPHER_CTX_free(context);
  count(state);
}

void ciphers(benchmark::internal::Benchmark* bench) {
  bench->ArgName("cipher")->Arg(ENCRYPT_AES_128_CBC)->Arg(ENCRYPT_AES_256_CBC)->Arg(ENCRYPT_AES_256_GCM);
  bench->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_OpenSSL)->Apply(ciphers);
BENCHMARK(BM_Write)->Apply(ciphers);
BENCHMARK(BM_Read)->Apply(ciphers);

}  // namespace

BENCHMARK_MAIN();
