#include "fake_data_mover.h"

#include <utility>

#include "mtf_backup/channel_factory.h"
#include "mtf_backup/mtf_backup.h"
#include "mtf_backup/mtf_restore.h"

// The data mover's operations are defined here, in place of the library's.

Fake_Data_Mover& Fake_Data_Mover::instance() {
  static Fake_Data_Mover fake;
  return fake;
}

Fake_Data_Mover::Run Fake_Data_Mover::next_run() {
  if (runs.empty()) return Run();
  Run run = std::move(runs.front());
  runs.pop_front();
  return run;
}

MTF_Backup::MTF_Backup(MTF::Event_Handler_var event_handler, MTF::Metadata& metadata,
                       ACE_Log_Msg_Callback_var log_callback)
    : event_handler_(event_handler), log_callback_(log_callback), err_code_(MTF::E_OK) {
  Fake_Data_Mover& fake = Fake_Data_Mover::instance();
  ++fake.constructed;
  fake.meta = metadata.object();
}

MTF_Backup::~MTF_Backup() = default;

bool MTF_Backup::backup(const std::string& name) {
  Fake_Data_Mover& fake = Fake_Data_Mover::instance();
  fake.backups.push_back({name, settings_, fake.meta, !log_callback_.null()});
  const Fake_Data_Mover::Run run = fake.next_run();
  if (run.during) run.during(*event_handler_);
  err_code_ = run.code;
  summary_.total_size = run.size;
  summary_.inc_size = run.set_size;
  summary_.storage_size = run.storage_size;
  return run.ok;
}

class MTF_BACKUP::Restore_Run {
 public:
  ACE_UINT64 size;
  ACE_UINT64 set_size;
};

MTF_Restore::MTF_Restore(MTF::Event_Handler_var event_handler, ACE_Log_Msg_Callback_var log_callback)
    : event_handler_(event_handler), log_callback_(log_callback), err_code_(MTF::E_OK) {
  ++Fake_Data_Mover::instance().constructed;
}

MTF_Restore::~MTF_Restore() = default;

void MTF_Restore::path_converter(MTF::IPath_Converter_var value) {
  Fake_Data_Mover& fake = Fake_Data_Mover::instance();
  fake.converters.push_back({settings_, value.null(), fake.channels.empty()});
  settings_.path_converter = value;
}

bool MTF_Restore::restore(const std::string& name) {
  Fake_Data_Mover& fake = Fake_Data_Mover::instance();
  fake.restores.push_back({name, settings_, *settings_.restore_select, !log_callback_.null()});
  const Fake_Data_Mover::Run run = fake.next_run();
  if (run.during) run.during(*event_handler_);
  err_code_ = run.code;
  restore_.reset(new MTF_BACKUP::Restore_Run{run.size, run.set_size});
  return run.ok;
}

MTF::Error_Code MTF_Restore::err_code() const {
  return err_code_;
}
ACE_UINT64 MTF_Restore::size() const {
  return restore_->size;
}
ACE_UINT64 MTF_Restore::set_size() const {
  return restore_->set_size;
}

namespace {

class Fake_Channel_Factory : public MTF_BACKUP::Channel_Factory {
 public:
  std::shared_ptr<Client_IO_Base> storage() override { return nullptr; }
  const Client_IO_Base::Options& options() const override { return options_; }

 private:
  Client_IO_Base::Options options_;
};

}  // namespace

MTF_BACKUP::Channel_Factory_var MTF_BACKUP::make_channel_factory(const Pool_Info& pool, const std::string& uri_path,
                                                                 const Client_IO_Base::Options& options) {
  Fake_Data_Mover& fake = Fake_Data_Mover::instance();
  fake.channels.push_back({pool.url, uri_path, options});
  return fake.no_channels ? nullptr : std::make_shared<Fake_Channel_Factory>();
}
