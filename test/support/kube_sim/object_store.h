#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/kube_sim/cluster.h"

namespace kube_sim {

/// One version of an object. Never changed once it is stored.
struct Stored_Object {
  Object_Id id;
  std::uint64_t revision = 0;
  json_spirit::Value value;
  /// The members of `value` but kind and apiVersion, as JSON text, up to the closing brace: lists join these.
  std::string members;

  const json_spirit::Object& object() const { return value.get_obj(); }
};
typedef std::shared_ptr<const Stored_Object> Stored_Object_var;

/// `members` of Stored_Object.
std::string members_text(const json_spirit::Object& object);

/// One change, with what there was before it (null: nothing) and after it (null: deleted).
struct Store_Event {
  std::uint64_t revision;
  Object_Id id;
  Stored_Object_var before, after;
  /// Of a deleted object: its last state, under the revision of its deletion.
  Stored_Object_var last;
};

/**
 * All objects under a revision that grows with each change, and the latest changes.
 *
 * Knows nothing of the meaning of objects, but that their revision stands in metadata.resourceVersion. Thread safe. A
 * Transaction holds the lock.
 */
class Object_Store {
 public:
  explicit Object_Store(std::size_t history) : history_limit_(history) {}

  /// Exclusive access, for as long as it lives.
  class Transaction {
   public:
    explicit Transaction(Object_Store& store) : store_(store), lock_(store.mutex_) {}

    std::uint64_t revision() const { return store_.revision_; }
    Stored_Object_var find(const Object_Id& id) const;
    /// Stores @a object as new or in place of an older state, under the next revision. Returns it as stored.
    Stored_Object_var put(const Object_Id& id, json_spirit::Object object);
    /// Takes the object out. Returns @a last, its last state, under the revision of the deletion.
    Stored_Object_var erase(const Object_Id& id, json_spirit::Object last);
    /// In the order of "namespace/name"; empty @a ns: of all namespaces.
    std::vector<Stored_Object_var> list(const std::string& group, const std::string& resource,
                                        const std::string& ns) const;
    /// The same as it was at @a revision. False when that is further back than the history.
    bool list_at(std::uint64_t revision, const std::string& group, const std::string& resource, const std::string& ns,
                 std::vector<Stored_Object_var>& out) const;
    int subscribe(std::function<void(const Change&)> callback);
    void unsubscribe(int subscription) { store_.subscribers_.erase(subscription); }

   private:
    void record(Store_Event event);

    Object_Store& store_;
    std::unique_lock<std::mutex> lock_;
  };

  /// The changes after @a revision of one resource, in order; waits up to @a patience for the first one. False when the
  /// history does not reach back that far. @a revision is set to the one that was looked at last.
  bool events_after(std::uint64_t& revision, const std::string& group, const std::string& resource,
                    std::chrono::milliseconds patience, std::vector<Store_Event>& out);
  /// The oldest revision that events_after() can start from.
  std::uint64_t oldest() const;

 private:
  typedef std::map<std::string, Stored_Object_var> Objects;  // by "namespace/name"

  std::uint64_t oldest_locked() const { return history_.empty() ? revision_ : history_.front().revision - 1; }

  const std::size_t history_limit_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::uint64_t revision_ = 0;
  std::map<std::pair<std::string, std::string>, Objects> objects_;
  std::deque<Store_Event> history_;
  std::map<int, std::function<void(const Change&)>> subscribers_;
  int last_subscription_ = 0;
};

}  // namespace kube_sim
