#pragma once

#include <memory>

#include "client_io/client_io_base.h"
#include "client_io/patience.h"

/**
 * A client that rides out failures of another one that may pass, as client_io::Patience tells, for up to
 * Options::max_seconds_retry from the first failure of an operation.
 *
 * A writer keeps the bytes that the storage may still lose, up to Options::resumption_buffer_size and no more than 64
 * MiB (a larger one is told at LM_WARNING, once for each size in turn), and writes them again after a failure: even a
 * failed sync, which may have dropped them, costs nothing then. A listing goes on behind the last object that was
 * shown.
 *
 * Once cancel() was called nothing is waited for.
 */
class TESSARIN_API Retrying_Client_IO : public Client_IO_Base {
 public:
  /// @param next  without patience of its own; its writers can resume().
  Retrying_Client_IO(std::unique_ptr<Client_IO_Base> next, const Options& options);
  ~Retrying_Client_IO() override;

  std::unique_ptr<Writer> create(const std::string& key) override;
  std::unique_ptr<Reader> open(const std::string& key) override;
  bool list(const std::string& prefix, const List_Callback& each) override;
  bool remove(const std::string& key) override;
  bool sweep(const std::string& prefix) override;
  void cancel() override;

 private:
  const std::unique_ptr<Client_IO_Base> next_;
  const size_t buffer_size_;
  client_io::Patience patience_;
};
