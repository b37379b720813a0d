#include "mtf_backup/channel_factory.h"

#include <cerrno>
#include <new>

#include "ace/Log_Msg.h"
#include "client_io/client_io_factory.h"
#include "client_io/rate_limiter.h"
#include "kolt/pool_info.h"

namespace MTF_BACKUP {

namespace {

class Pool_Channel_Factory : public Channel_Factory {
 public:
  Pool_Channel_Factory(const Pool_Info& pool, const std::string& uri_path, const Client_IO_Base::Options& options)
      : pool_(pool),
        uri_path_(uri_path),
        options_(options),
        limiters_(std::make_shared<client_io::Rate_Limiters>(options.rate_limits.of_job())) {}

  std::shared_ptr<Client_IO_Base> storage() override { return make_client_io(pool_, uri_path_, options_, limiters_); }
  const Client_IO_Base::Options& options() const override { return options_; }

 private:
  const Pool_Info pool_;
  const std::string uri_path_;
  const Client_IO_Base::Options options_;
  const std::shared_ptr<client_io::Rate_Limiters> limiters_;
};

}  // namespace

Channel_Factory_var make_channel_factory(const Pool_Info& pool, const std::string& uri_path,
                                         const Client_IO_Base::Options& options) {
  if (!make_client_io(pool, uri_path, options)) return nullptr;  // tells what is wrong with the pool
  Channel_Factory_var factory(new (std::nothrow) Pool_Channel_Factory(pool, uri_path, options));
  if (!factory) {
    errno = ENOMEM;
  } else if (!pool.key.empty() && pool.cipher == ENCRYPT_NONE && options.encryption_algorithm == ENCRYPT_NONE) {
    // A cipher in quotes, for one, is none.
    ACE_ERROR((LM_WARNING, ACE_TEXT("The storage pool has a key but no cipher: objects are not encrypted.\n")));
  }
  return factory;
}

}  // namespace MTF_BACKUP
