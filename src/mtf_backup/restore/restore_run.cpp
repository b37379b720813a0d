#include "mtf_backup/restore/restore_run.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <thread>
#include <vector>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "mtf_backup/restore/file_restorer.h"
#include "mtf_backup/restore/restore_finisher.h"
#include "mtf_backup/restore/restore_planner.h"
#include "mtf_backup/run/progress_reporter.h"
#include "mtf_backup/run/run_threads.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t max_threads = 64;

bool refuse(const char* why) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to start the restore: %C.\n"), why));
  return false;
}

}  // namespace

Restore_Run::Restore_Run(const Restore_Settings& settings, MTF::Event_Handler_var handler,
                         ACE_Log_Msg_Callback* log_callback)
    : settings_(settings), handler_(handler), log_callback_(log_callback) {}

Restore_Run::~Restore_Run() = default;

bool Restore_Run::run(const std::string& name) {
  err_code_ = restore(name);
  return err_code_ == MTF::E_OK;
}

MTF::Error_Code Restore_Run::restore(const std::string& name) {
  if (!check() || !selection_.open(settings_.restore_select)) return MTF::E_FAILED;
  storage_ = settings_.channel_factory->storage();
  if (!storage_) {
    refuse("no memory for a storage client");
    return MTF::E_FAILED;
  }
  const auto stop = [this] { storage_->cancel(); };
  const bool found = run_step(state_, handler_, log_callback_, stop, [&] { return find_set(name); });
  const MTF::Error_Code code = found ? move_data() : state_.code();
  if (!state_.canceled()) tally_.tell_rest();
  return code;
}

bool Restore_Run::check() const {
  if (!settings_.callback_factory) return refuse("no callback factory");
  if (!settings_.channel_factory) return refuse("no channel factory");
  // Everything would go back to where it came from.
  if (settings_.path_converter_missing) return refuse("no path converter");
  return true;
}

MTF::Error_Code Restore_Run::find_set(const std::string& name) {
  if (Set_Store(storage_).find(name, settings_.seq, settings_.incarnation, id_, record_)) return MTF::E_OK;
  if (errno == EBADMSG) return MTF::E_CORRUPT;
  if (errno != ENOENT) return MTF::E_OPEN_MEDIA;
  ACE_ERROR((LM_ERROR, ACE_TEXT("There is no set %C with number %u, incarnation %u.\n"), printable(name).c_str(),
             settings_.seq, settings_.incarnation));
  return MTF::E_NOT_FOUND;
}

uint64_t Restore_Run::catalog_size() const {
  const Stored_Object* catalog = record_.find("catalog");
  return catalog ? catalog->size : 0;
}

size_t Restore_Run::thread_count() const {
  const size_t cores = std::max(std::thread::hardware_concurrency(), 1u);
  const size_t wanted = settings_.concurrent > 0 ? settings_.concurrent : settings_.channel_num;
  return std::clamp<size_t>(wanted, 1, std::min(2 * cores, max_threads));
}

MTF::Error_Code Restore_Run::move_data() {
  MTF::IRestore_Callback_var callback = settings_.callback_factory->make();
  if (!callback) {
    refuse("no memory for a restore callback");
    return MTF::E_FAILED;
  }
  Frame_Workers workers(Frame_Workers::for_reading());
  if (!workers.open()) return MTF::E_FAILED;
  Medium_Set media(*settings_.channel_factory, record_, id_.dir(), workers);
  Target_Tree targets(settings_.path_converter, settings_.target_location, callback);
  Restore_Job job{settings_, record_, selection_, targets, media, state_, tally_, {}};
  Catalog_Reader catalog(*storage_, id_.dir(), record_.set_uuid, catalog_size());
  Catalog_Reader lookup(*storage_, id_.dir(), record_.set_uuid, catalog_size());
  Bounded_Queue_T<Restore_Batch> queue(2 * thread_count() + 2);
  Link_Plan links(job, lookup);
  Restore_Planner planner(job, catalog, links, queue);
  Restore_Finisher finisher(job, catalog, links, *callback);
  Progress_Reporter progress(handler_, state_, "restore");
  const auto run_threads = [&](const std::vector<std::function<void()>>& bodies) {
    Run_Threads threads(state_, log_callback_, [&] {
      queue.abort();
      storage_->cancel();
      media.cancel();
    });
    for (const auto& body : bodies) threads.start(body);
    progress.watch(threads);
    return !state_.stopping();
  };

  std::vector<std::function<void()>> bodies;
  bodies.push_back([&] {
    if (catalog.open() && lookup.open() && count_total(job, catalog))
      planner.run();
    else if (!state_.stopping())
      fail_by_catalog(state_);
  });
  for (size_t i = 0; i < thread_count(); ++i) bodies.push_back([&] { File_Restorer(job, queue).run(); });
  if (!run_threads(bodies)) return state_.code();

  summary_.total_size = planner.total_size();
  summary_.inc_size = planner.held_size();
  state_.total = summary_.total_size;
  if (planner.planned_count() == 0 && tally_.failed_count() == 0) {
    progress.finish();
    return MTF::E_NO_FILES_RESTORED;
  }
  const auto finish = [&] {
    if (catalog.seek(0, "", true))
      finisher.run();
    else
      fail_by_catalog(state_);
    if (!state_.stopping() && !targets.sync()) state_.fail(MTF::E_FAILED);
  };
  if (!run_threads({finish})) return state_.code();
  progress.finish();
  if (tally_.damaged_count() > 0) return MTF::E_CORRUPT;
  return tally_.failed_count() + tally_.lossy_count() > 0 ? MTF::E_END_WITH_SKIPPED_FILES : MTF::E_OK;
}

/// Where the whole set is wanted, its record tells the sum; otherwise the catalog has to be read for it.
bool Restore_Run::count_total(Restore_Job& job, Catalog_Reader& catalog) {
  const auto& sources = record_.sources;
  if (std::all_of(sources.begin(), sources.end(), [&](const std::string& s) { return selection_.contains(s); })) {
    state_.total = record_.summary.total_size;
    return true;
  }
  Entry_Scan scan(job, catalog, false);
  Restore_Item item;
  int got;
  while ((got = scan.next(item)) > 0)
    if (!item.entry.is_directory()) state_.total += item.entry.stat.size;
  return got == 0 && catalog.seek(0, "", true);
}

}  // namespace MTF_BACKUP
