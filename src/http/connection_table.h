#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>

/**
 * Who is connected, and who has to go when all places are taken: the connection that has waited longest for a whole
 * request. A flood of connections that say nothing so pushes out itself, never one that is being served.
 *
 * Threads: all operations may be called from any thread. Functions given to admit() are called without a lock held.
 */
class Connection_Table {
 public:
  typedef uint64_t Id;

  Connection_Table(size_t limit, size_t limit_per_peer) : limit_(limit), limit_per_peer_(limit_per_peer) {}

  /**
   * Gives a place to a new connection, which counts as waiting.
   *
   * @param close  ends the connection; called at most once, when it has to give way or by close_all(). The place is
   * free by then.
   * @return the id of the place; 0 if all are taken by connections that are being served.
   */
  Id admit(const std::string& peer, std::function<void()> close);

  /// The connection waits for a request from now on, until the last byte of it is there.
  void waiting(Id id);
  /// The connection's request is whole and being served.
  void busy(Id id);
  /// Gives the place back; unknown ids are passed over.
  void leave(Id id);

  /// Ends all.
  void close_all();

  size_t size() const;

 private:
  struct Entry {
    std::string peer;
    std::function<void()> close;
    bool waiting;
    std::list<Id>::iterator place;  // in waiting_, while waiting
  };
  typedef std::map<Id, Entry> Entries;

  bool full_for(const std::string& peer) const;
  Entries::iterator longest_waiting(const std::string& peer);
  std::function<void()> take_out(Entries::iterator entry);

  const size_t limit_;
  const size_t limit_per_peer_;

  mutable std::mutex lock_;
  Id last_id_ = 0;  // guarded by lock_, as all below
  Entries entries_;
  std::list<Id> waiting_;                   // longest first
  std::map<std::string, size_t> per_peer_;  // no zeros
};
