#pragma once

#include <atomic>
#include <memory>

#include "client_io/client_io_base.h"
#include "client_io/key_source.h"

/**
 * A client whose objects are encrypted and authenticated, each as a whole and under its key, on the way to another one.
 * All sizes above it are plain. The format stands in doc/encryption.md.
 *
 * Beside the errors of Client_IO_Base: EBADMSG with a line "Failed to decrypt object "<key>" at offset <n>: <why>.",
 * the offset counted in the encrypted object, for a wrong key, damage, an object that was put under another key or is
 * not encrypted. open() tells these for the header and the last chunk, so that the size can be relied on; a read tells
 * them for the chunks that it touches. list() takes the sizes from the storage, unproved, and tells 0 where a size is
 * not one of an encrypted object.
 */
class TESSARIN_API Encrypted_Client_IO : public Client_IO_Base {
 public:
  /// @param encryption  with a cipher that is known and a key that fits it.
  Encrypted_Client_IO(std::unique_ptr<Client_IO_Base> next, client_io::Pool_Encryption encryption);
  ~Encrypted_Client_IO() override;

  /// To be called once, and first. False with errno, after one line at LM_ERROR, where OpenSSL lacks the cipher.
  [[nodiscard]] bool start();

  std::unique_ptr<Writer> create(const std::string& key) override;
  std::unique_ptr<Reader> open(const std::string& key) override;
  bool list(const std::string& prefix, const List_Callback& each) override;
  bool remove(const std::string& key) override { return next_->remove(key); }
  bool sweep(const std::string& prefix) override { return next_->sweep(prefix); }
  void cancel() override;

 private:
  const std::unique_ptr<Client_IO_Base> next_;
  client_io::Key_Source keys_;
  std::atomic<bool> canceled_{false};
};
