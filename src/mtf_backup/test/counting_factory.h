#pragma once

#include <memory>

#include "mtf_backup/channel_factory.h"
#include "support/counting_client_io.h"
#include "support/memory_client_io.h"

namespace mover_test {

/// Gives out one client of a pool in memory, which counts what is read. For one run: its end cancels the client.
class Counting_Factory : public MTF_BACKUP::Channel_Factory {
 public:
  explicit Counting_Factory(const std::shared_ptr<test_support::Memory_Pool>& pool) : memory_(pool) {}
  std::shared_ptr<Client_IO_Base> storage() override { return {std::shared_ptr<void>(), &counting}; }
  const Client_IO_Base::Options& options() const override { return options_; }

 private:
  test_support::Memory_Client_IO memory_;
  const Client_IO_Base::Options options_;

 public:
  test_support::Counting_Client_IO counting{memory_};
};

}  // namespace mover_test
