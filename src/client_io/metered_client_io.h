#pragma once

#include <memory>

#include "client_io/client_io_base.h"

/**
 * A client that counts what another one does: how long each operation took, the bytes, and the failures by their
 * reason. It stands right before a driver, so that neither limits nor the waits of Retrying_Client_IO count.
 */
class TESSARIN_API Metered_Client_IO : public Client_IO_Base {
 public:
  explicit Metered_Client_IO(std::unique_ptr<Client_IO_Base> next) : next_(std::move(next)) {}

  std::unique_ptr<Writer> create(const std::string& key) override;
  std::unique_ptr<Reader> open(const std::string& key) override;
  bool list(const std::string& prefix, const List_Callback& each) override;
  bool remove(const std::string& key) override;
  bool sweep(const std::string& prefix) override;
  void cancel() override { next_->cancel(); }

 private:
  const std::unique_ptr<Client_IO_Base> next_;
};
