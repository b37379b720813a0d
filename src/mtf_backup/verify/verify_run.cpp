#include "mtf_backup/verify/verify_run.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <thread>
#include <utility>

#include "ace/Log_Msg.h"
#include "mtf_backup/run/progress_reporter.h"
#include "mtf_backup/run/run_threads.h"
#include "mtf_backup/set/set_store.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t batch_entries = 256;
constexpr size_t queued_batches = 4;

size_t reader_count(const Commit_Record& record) {
  const size_t media = std::max(1u, record.channels) + record.chain.size();
  return std::min<size_t>(media, 2 * std::max(std::thread::hardware_concurrency(), 1u));
}

}  // namespace

MTF::Error_Code Verify_Run::run(const std::string& dir) {
  if (!settings_.channel_factory) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to start the verification: no channel factory.\n")));
    return MTF::E_FAILED;
  }
  const Damage_Listener::Scope listening(&findings_);
  if (!make_clients()) return MTF::E_FAILED;
  const auto stop = [this] { storage_->cancel(); };
  if (!run_step(state_, handler_, nullptr, stop, [&] { return read_record(dir); })) return state_.code();
  expect_objects(dir);
  check(dir);
  if (state_.code() != MTF::E_OK) return state_.code();
  return findings_.empty() ? MTF::E_OK : MTF::E_CORRUPT;
}

bool Verify_Run::make_clients() {
  factory_ = std::make_unique<Hashing_Channel_Factory>(*settings_.channel_factory, objects_);
  storage_ = factory_->storage();
  plain_storage_ = settings_.channel_factory->storage();
  return storage_ && plain_storage_;
}

MTF::Error_Code Verify_Run::read_record(const std::string& dir) {
  if (Set_Store(storage_).read(dir, record_)) return MTF::E_OK;
  if (errno == EBADMSG) return MTF::E_CORRUPT;
  return errno == ENOENT ? MTF::E_NOT_FOUND : MTF::E_OPEN_MEDIA;
}

void Verify_Run::expect_objects(const std::string& dir) {
  for (const Stored_Object& object : record_.objects) {
    const bool medium = object.name.find(".mtf") != std::string::npos;
    if (settings_.with_data || !medium) state_.total += object.size;
    objects_.hashes.try_emplace(dir + '/' + object.name, object.size);
  }
}

bool Verify_Run::run_threads(const std::vector<std::function<void()>>& bodies, Progress_Reporter& progress,
                             const std::function<void()>& stop) {
  Run_Threads threads(state_, nullptr, stop);
  for (const auto& body : bodies) threads.start(body);
  progress.watch(threads);
  return !state_.stopping();
}

void Verify_Run::check(const std::string& dir) {
  Frame_Workers workers(Frame_Workers::for_reading());
  if (settings_.with_data && !workers.open()) return state_.fail(MTF::E_FAILED);
  Medium_Set media(*factory_, record_, dir, workers);
  Verify_Job job{settings_, record_, media, state_, findings_};
  Set_Check set(*storage_, record_, dir, findings_);
  Progress_Reporter progress(handler_, state_, "verify");
  Queues queues;
  const auto stop = [&] {
    for (auto& queue : queues) queue->abort();
    storage_->cancel();
    plain_storage_->cancel();
    media.cancel();
  };

  std::vector<std::function<void()>> bodies;
  const size_t readers = settings_.with_data ? reader_count(record_) : 0;
  for (size_t i = 0; i < readers; ++i) {
    queues.push_back(std::make_unique<Bounded_Queue_T<Entry_Batch>>(queued_batches));
    std::vector<uint32_t> channels;
    for (size_t channel = i; channel < record_.channels; channel += readers)
      channels.push_back(static_cast<uint32_t>(channel));
    bodies.push_back([&job, channels, &queue = *queues.back()] { Entry_Check(job, queue, channels).run(); });
  }
  bodies.push_back([&] {
    if (!check_structure(set, queues) && !state_.stopping()) state_.fail(MTF::E_OPEN_MEDIA);
    for (auto& queue : queues) queue->close();
  });
  if (!run_threads(bodies, progress, stop)) return;
  const auto finish = [&] {
    if (check_links(dir, media)) check_hashes(dir, set);
  };
  if (settings_.with_data && !run_threads({finish}, progress, stop)) return;
  progress.finish();
}

/// All but the data. Entries that are to be read go to the threads that read them.
bool Verify_Run::check_structure(Set_Check& set, Queues& queues) {
  if (!set.check_objects() || !set.check_chain() || !set.check_indexes(state_)) return false;
  std::vector<Entry_Batch> batches(queues.size());
  const bool checked = set.check_catalog(state_, [&](const Catalog_Entry& entry) {
    const std::string missing = missing_text(entry);
    if (!missing.empty()) findings_.note(shown_path(record_, entry), missing);
    if (queues.empty() || !is_read(entry)) return true;
    // One thread for all entries of a medium.
    const size_t reader = (entry.channel + size_t(record_.channels) * entry.set) % queues.size();
    batches[reader].push_back(entry);
    if (batches[reader].size() < batch_entries) return true;
    return queues[reader]->push(std::exchange(batches[reader], {}));
  });
  for (size_t i = 0; i < queues.size(); ++i)
    if (!batches[i].empty() && !queues[i]->push(std::move(batches[i]))) return false;
  return checked;
}

bool Verify_Run::is_read(const Catalog_Entry& entry) const {
  if (entry.flags & CAT_SKIPPED) return false;
  return entry.set == 0 || !settings_.verified.contains(record_.chain[entry.set - 1].dir);
}

/// Further names of a file that is hit have no data of their own.
bool Verify_Run::check_links(const std::string& dir, Medium_Set& media) {
  if (!findings_.has_hits()) return true;
  Set_Check set(*plain_storage_, record_, dir, findings_);
  const bool checked = set.check_catalog(state_, [&](const Catalog_Entry& entry) {
    const std::string path = shown_path(record_, entry);
    if (findings_.is_hit(entry.hard_link_target) && !findings_.is_hit(path))
      findings_.hit(path, media.name(entry.set, entry.channel), entry.offset);
    return true;
  });
  if (!checked && !state_.stopping()) state_.fail(MTF::E_OPEN_MEDIA);
  return checked;
}

void Verify_Run::check_hashes(const std::string& dir, Set_Check& set) {
  for (const Stored_Object& object : record_.objects) {
    if (state_.stopping()) return;
    if (!set.check_hash(*plain_storage_, object, objects_.hashes.at(dir + '/' + object.name)) && !state_.stopping())
      return state_.fail(MTF::E_OPEN_MEDIA);
  }
}

}  // namespace MTF_BACKUP
