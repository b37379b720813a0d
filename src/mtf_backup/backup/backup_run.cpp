#include "mtf_backup/backup/backup_run.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <random>
#include <utility>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "kolt/without_bad_alloc.h"
#include "mtf_backup/backup/source_meter.h"
#include "mtf_backup/backup/source_walker.h"
#include "mtf_backup/run/disk_waits.h"
#include "mtf_backup/run/progress_reporter.h"
#include "mtf_backup/run/run_threads.h"
#include "mtf_backup/set/frame_codec.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t max_channels = 64;
// A request that is under way may be answered, so that it is known whether the set stands.
constexpr std::chrono::seconds answer_time(1);

uint32_t random_number() {
  return std::random_device()();
}

bool refuse(const char* why) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to start the backup: %C.\n"), why));
  return false;
}

}  // namespace

Backup_Run::Backup_Run(const Backup_Settings& settings, MTF::Event_Handler_var handler,
                       ACE_Log_Msg_Callback* log_callback)
    : settings_(settings), handler_(handler), log_callback_(log_callback) {}

MTF::Error_Code Backup_Run::run(const std::string& name) {
  if (!check(name)) return MTF::E_FAILED;
  if (!open_sources()) return MTF::E_GET_SOURCE_DATA;
  if (!make_clients()) return MTF::E_OPEN_MEDIA;
  if (!step([&] { return open_storage(name); })) return state_.code();
  if (!without_bad_alloc([this] { return make_channels() && move_data() && commit(); })) {
    state_.fail(MTF::E_FAILED);  // where nothing worse is known
    clean_up();
  }
  return result();
}

bool Backup_Run::check(const std::string& name) const {
  const auto method = settings_.compression;
  if (name.empty()) return refuse("the set has no name");
  if (!settings_.callback_factory) return refuse("no callback factory");
  if (!settings_.channel_factory) return refuse("no channel factory");
  if (settings_.sources.empty()) return refuse("no source");
  if (method >= COMPR_MAX) return refuse("unknown compression method");
  if (!has_level(mtf_to_compression(method), settings_.compression_level))
    return refuse("the compression method has no such level");
  // Options that came too late for the channels must not lead to a set that is not encrypted.
  if (settings_.extra_client_io_opts.encryption_algorithm != ENCRYPT_NONE &&
      settings_.channel_factory->options().encryption_algorithm == ENCRYPT_NONE)
    return refuse("encryption is asked for, but the storage channels have none");
  return true;
}

bool Backup_Run::open_sources() {
  for (const std::string& path : settings_.sources) {
    Source source;
    source.path = path;
    source.root = Posix_Fd(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat st;
    if (!source.root || ::fstat(source.root.get(), &st) != 0) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to open directory %C: %m\n"), printable(path).c_str()));
      return false;
    }
    source.stat = MTF::entry_stat(st);
    record_.sources.push_back(path);
    sources_.push_back(std::move(source));
  }
  return true;
}

bool Backup_Run::make_clients() {
  record_.channels = static_cast<unsigned>(std::clamp<size_t>(settings_.channel_num, 1, max_channels));
  if (settings_.channel_num > max_channels)
    ACE_ERROR((LM_WARNING, ACE_TEXT("%B channels are too many, %B are used.\n"), settings_.channel_num, max_channels));
  for (unsigned i = 0; i < record_.channels; ++i) {
    clients_.push_back(settings_.channel_factory->storage());
    if (!clients_.back()) return refuse("no memory for a storage client");
  }
  return true;
}

MTF::Error_Code Backup_Run::open_storage(const std::string& name) {
  store_ = std::make_unique<Set_Store>(clients_.front());
  // In this order: the directory that is written is none that the sweep clears.
  if (!store_->begin(name, settings_.seq + 1, id_) || !store_->sweep()) return MTF::E_OPEN_MEDIA;

  record_.set_uuid = settings_.uuid;
  record_.pool_uuid = settings_.pool_uuid;
  record_.host_uuid = settings_.host_uuid;
  record_.minor_resource_id = settings_.minor_resource_id;
  record_.name = id_.name;
  record_.seq = id_.seq;
  record_.incarnation = id_.incarnation;
  record_.begin_time = std::time(nullptr);
  record_.compression = mtf_to_compression(settings_.compression);
  if (settings_.incremental) open_base(name);
  return MTF::E_OK;
}

/// Without a set to build on a full one is written.
void Backup_Run::open_base(const std::string& name) {
  std::string why;
  if (find_base(*store_, name, settings_.seq, record_.sources, base_set_, why)) {
    base_ = std::make_unique<Base_Merge>(*clients_.front(), base_set_, state_);
    record_.base = base_set_.dir;
    if (base_->open()) return;
    base_.reset();
    record_.base.clear();
    why = "the catalog of set " + printable(base_set_.dir) + " cannot be read";
  }
  if (state_.stopping()) return;
  ACE_ERROR((LM_WARNING, ACE_TEXT("Set %C is written in full and builds on no other: %C.\n"),
             printable(id_.dir()).c_str(), why.c_str()));
}

bool Backup_Run::make_channels() {
  MTF::Set_Header header;
  header.family_id = random_number();
  header.media_name = id_.dir();
  header.software_name = "tessarin";
  header.set_name = id_.name;
  header.user = settings_.host_uuid;
  header.time = record_.begin_time;
  header.incremental = base_ != nullptr;
  job_.reset(new Backup_Job{sources_, settings_.callback_factory, header, state_});
  workers_ = std::make_unique<Frame_Workers>();
  catalog_ = std::make_unique<Catalog_Writer>(*clients_.front(), id_.dir(), record_.set_uuid);
  for (unsigned i = 0; i < record_.channels; ++i) {
    const Medium_Id medium{id_.dir(), record_.set_uuid, i, record_.compression};
    channels_.push_back(
        std::make_unique<Channel_Writer>(*job_, *clients_[i], medium, settings_.compression_level, *workers_));
  }
  return step([this] { return open_channels(); });
}

MTF::Error_Code Backup_Run::open_channels() {
  if (!workers_->open() || !catalog_->open()) return MTF::E_OPEN_MEDIA;
  for (const auto& channel : channels_)
    if (!channel->open()) return state_.code();
  return MTF::E_OK;
}

bool Backup_Run::move_data() {
  Bounded_Queue_T<Work_Batch_var> queue(2 * channels_.size() + 2);
  Read_Ahead read_ahead(sources_, state_, settings_.read_ahead_always);
  Entry_Collector collector(*catalog_, record_.sources, state_);
  Source_Walker walker(sources_, settings_.callback_factory, base_.get(), queue, read_ahead, state_);
  Progress_Reporter progress(handler_, state_, "backup");
  {
    const Source_Meter meter(sources_, state_);
    Run_Threads threads(state_, log_callback_, [&] {
      queue.abort();
      collector.abort();
      cancel_clients();
    });
    threads.start([&] { walker.run(); });
    for (auto& channel : channels_) threads.start([&] { (void)run_channel(*channel, queue, read_ahead, collector); });
    progress.watch(threads);
  }
  if (state_.stopping()) return false;
  progress.finish();
  record_.summary = collector.summary();
  if (base_) record_.chain = base_->chain();
  has_files_ = collector.has_files();
  has_losses_ = collector.has_losses();
  return true;
}

bool Backup_Run::run_channel(Channel_Writer& channel, Bounded_Queue_T<Work_Batch_var>& queue, Read_Ahead& read_ahead,
                             Entry_Collector& collector) {
  Disk_Waits waits;
  Work_Batch_var batch;
  while (queue.pop(batch)) {
    Batch_Result result;
    if (!channel.write(*batch, result)) return false;
    read_ahead.note(waits.waited(batch->items.size()));
    if (!collector.deliver(std::move(result))) return false;
  }
  return !state_.stopping() && channel.finish();
}

/// A cancel that does not keep the commit record from being written, and from standing, is too late.
bool Backup_Run::commit() {
  Run_Threads threads(state_, log_callback_, [&] {
    (void)threads.wait(answer_time);
    cancel_clients();
  });
  threads.start([this] {
    const MTF::Error_Code code = write_record();
    if (code != MTF::E_OK) state_.fail(code);
  });
  threads.watch(handler_);
  return committed_;
}

MTF::Error_Code Backup_Run::write_record() {
  if (!catalog_->finish()) return MTF::E_ADD_TO_CATALOG;
  record_.objects = finished_objects();
  for (const Stored_Object& object : record_.objects) record_.summary.storage_size += object.size;
  record_.end_time = std::time(nullptr);
  committed_ = store_->commit(id_, record_);
  return committed_ ? MTF::E_OK : MTF::E_WRITE_TO_STORAGE;
}

/// Runs what may wait for the storage so that a cancel is heard. False: the run is stopping.
bool Backup_Run::step(const std::function<MTF::Error_Code()>& body) {
  return run_step(
      state_, handler_, log_callback_, [this] { cancel_clients(); }, body);
}

void Backup_Run::cancel_clients() {
  for (const auto& client : clients_) client->cancel();
}

std::vector<Stored_Object> Backup_Run::finished_objects() const {
  std::vector<Stored_Object> objects;
  for (const auto& channel : channels_)
    objects.insert(objects.end(), channel->objects().begin(), channel->objects().end());
  if (catalog_ && !catalog_->object().name.empty()) objects.push_back(catalog_->object());
  return objects;
}

/// Takes away what a run that failed has left in the pool.
void Backup_Run::clean_up() {
  const std::vector<Stored_Object> objects = finished_objects();
  channels_.clear();
  catalog_.reset();
  record_.summary = MTF::Cat_Summary();
  // A failure has its line, and the next run sweeps again.
  (void)store_->discard(id_, objects);
}

MTF::Error_Code Backup_Run::result() const {
  if (!committed_) return state_.code();
  if (has_losses_) return MTF::E_END_WITH_SKIPPED_FILES;
  return has_files_ ? MTF::E_OK : MTF::E_NO_FILES_BACKUPED;
}

}  // namespace MTF_BACKUP
