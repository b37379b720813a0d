#pragma once

#include <atomic>
#include <memory>

#include "client_io/client_io_base.h"
#include "client_io/rate_limiter.h"

/// A client whose writes keep to the dest limits and whose reads keep to the src limits, together with all clients that
/// have the same limiters.
class TESSARIN_API Rate_Limited_Client_IO : public Client_IO_Base {
 public:
  Rate_Limited_Client_IO(std::unique_ptr<Client_IO_Base> next, std::shared_ptr<client_io::Rate_Limiters> limiters);
  ~Rate_Limited_Client_IO() override;

  std::unique_ptr<Writer> create(const std::string& key) override;
  std::unique_ptr<Reader> open(const std::string& key) override;
  bool list(const std::string& prefix, const List_Callback& each) override { return next_->list(prefix, each); }
  bool remove(const std::string& key) override { return next_->remove(key); }
  bool sweep(const std::string& prefix) override { return next_->sweep(prefix); }
  /// Ends the waits of this client, not those of others.
  void cancel() override;

 private:
  const std::unique_ptr<Client_IO_Base> next_;
  const std::shared_ptr<client_io::Rate_Limiters> limiters_;
  std::atomic<bool> canceled_{false};
};
