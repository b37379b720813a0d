#include "ctl/sets/pool.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "client_io/client_io_factory.h"
#include "client_io/util.h"
#include "ctl/agent.h"
#include "ctl/failure.h"
#include "ctl/given_pool.h"
#include "ctl/options.h"
#include "ctl/set_place.h"
#include "mtf_backup/set/set_store.h"

namespace ctl {

namespace {

constexpr char file_scheme[] = "file://";

bool is_unreadable(int error) {
  return error == EBADMSG || error == ENOTSUP;
}

}  // namespace

Pool::Pool(Pool_Info info) : info_(std::move(info)) {
  const char* const access_key = std::getenv("TESSARIN_ACCESS_KEY");
  if (access_key != nullptr && *access_key != '\0') set_access_key_to_options(options_, access_key);
}

Pool Pool::of(const Options& options) {
  Pool_Info info = given_pool(options);
  if (info.url.empty()) {
    Agent agent(options.agent, options.token_file);
    info = place_of_job(options, agent).pool;
  }
  return Pool(std::move(info));
}

void Pool::fail() const {
  throw Failure(exit_pool, "The pool " + shown_url(info_.url) + " cannot be read: " + std::strerror(errno) + ".");
}

void Pool::check() const {
  std::error_code error;
  if (info_.url.starts_with(file_scheme) &&
      !std::filesystem::is_directory(info_.url.substr(sizeof file_scheme - 1), error))
    throw Failure(exit_pool, "There is no pool at " + shown_url(info_.url) + ".");
}

std::vector<MTF_BACKUP::Pool_Key> Pool::keys(const std::string& host, const std::string& resource) const {
  const auto client = make_client_io(info_, "", options_);
  std::vector<MTF_BACKUP::Pool_Key> keys;
  if (!client || !list_pool(*client, host, resource, keys)) fail();
  return keys;
}

MTF_BACKUP::Channel_Factory_var Pool::channels(const MTF_BACKUP::Pool_Key& key) const {
  auto factory = MTF_BACKUP::make_channel_factory(info_, key.host + '/' + key.resource, options_);
  if (!factory) fail();
  return factory;
}

std::shared_ptr<Client_IO_Base> Pool::storage(const MTF_BACKUP::Pool_Key& key) const {
  auto storage = channels(key)->storage();
  if (!storage) fail();
  return storage;
}

Pool_Sets Pool::read(const std::vector<MTF_BACKUP::Pool_Key>& keys) const {
  Pool_Sets found;
  std::shared_ptr<Client_IO_Base> client;
  const MTF_BACKUP::Pool_Key* place = nullptr;  // of the client
  for (const MTF_BACKUP::Pool_Key& key : keys) {
    if (!place || place->host != key.host || place->resource != key.resource) client = storage(key);
    place = &key;
    MTF_BACKUP::Commit_Record record;
    if (MTF_BACKUP::Set_Store(client).read(key.set.dir(), record))
      found.sets.push_back({key, std::move(record)});
    else if (is_unreadable(errno))
      found.unreadable.push_back(key);
    else if (errno != ENOENT)
      fail();
  }
  return found;
}

MTF_BACKUP::Commit_Record Pool::record(const MTF_BACKUP::Pool_Key& key) const {
  MTF_BACKUP::Commit_Record record;
  if (MTF_BACKUP::Set_Store(storage(key)).read(key.set.dir(), record)) return record;
  if (is_unreadable(errno)) throw Failure(exit_pool, "The set " + key.set.dir() + " cannot be read.");
  fail();
}

}  // namespace ctl
