#pragma once

#include <memory>

#include "client_io/client_io_base.h"
#include "client_io/rate_limiter.h"

/// A client whose writes keep to the dest limits and whose reads keep to the src limits, all writers (readers)
/// together.
class TESSARIN_API Rate_Limited_Client_IO : public Client_IO_Base {
 public:
  /// @param clock  null: the system's clock.
  Rate_Limited_Client_IO(std::unique_ptr<Client_IO_Base> next, const Rate_Limits& limits,
                         std::unique_ptr<client_io::Rate_Clock> clock = nullptr);
  ~Rate_Limited_Client_IO() override;

  std::unique_ptr<Writer> create(const std::string& key) override;
  std::unique_ptr<Reader> open(const std::string& key) override;
  bool list(const std::string& prefix, const List_Callback& each) override { return next_->list(prefix, each); }
  bool remove(const std::string& key) override { return next_->remove(key); }
  bool sweep(const std::string& prefix) override { return next_->sweep(prefix); }
  void cancel() override;

 private:
  const std::unique_ptr<Client_IO_Base> next_;
  const std::unique_ptr<client_io::Rate_Clock> clock_;
  client_io::Rate_Limiter writes_;
  client_io::Rate_Limiter reads_;
};
