#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "k8s/api/k8s_session.h"

namespace test_support {

inline constexpr int never = 1'000'000;

/// What becomes of the objects of a storage class, in seconds of kolt::clock().
struct Class_Behaviour {
  const char* mode = "Immediate";  ///< null: the class has none
  int bound_sec = 0;               ///< from the making of a claim until it is bound
  int clone_bound_sec = 0;
  int ready_sec = 0;  ///< from the making of a snapshot until it is ready
  int gone_sec = 0;   ///< from the DELETE of a claim until it is gone
  bool claim_refused = false;
  bool clone_refused = false;
};

/// An exchange that goes wrong.
struct Exchange_Fault {
  int status = 0;        ///< 0: no exchange took place
  bool carried = false;  ///< the server carried the request out all the same
};

/**
 * A small API server in the process: keeps storage classes, claims, snapshots and config maps, and lets claims be bound
 * and snapshots get ready as the behaviour of their class says. A copy of a class behaves as its original, but binds
 * claims at once; a class that waits for a consumer never binds any.
 *
 * While it lives, every session that K8S_Session_Factory makes leads to it, in a program that is linked with
 * storage_server.cpp. Threads: one at a time.
 */
class Storage_Server {
 public:
  Storage_Server();
  ~Storage_Server();
  Storage_Server(const Storage_Server&) = delete;
  Storage_Server& operator=(const Storage_Server&) = delete;

  /// Forgets all objects and requests.
  void reset();
  void add_class(const std::string& name, const Class_Behaviour& behaviour = {});
  /// Adds an object under its path.
  void add(const std::string& path, const std::string& json);
  bool has(const std::string& path) const { return objects_.contains(path); }
  const json_spirit::Value& at(const std::string& path) const { return objects_.at(path).document; }
  /// All objects, by path, as they are; volumes are left out, which the system never deletes.
  std::map<std::string, json_spirit::Value> objects() const;

  /// The requests so far, as in "GET /api/v1/pods", with names made legible.
  std::vector<std::string> requests() const;
  void clear_requests() { requests_.clear(); }
  /// The last document that was sent.
  const json_spirit::Value& sent() const { return sent_; }
  /// @a text with "claim-of-gold" in the place of the random name of the claim of the class gold, and "copy-of-gold" in
  /// the place of that of its copy.
  std::string legible(std::string text) const;
  /// The reverse.
  std::string real(std::string text) const;

  /// Asked before each request, with its number, counted from 1, and its legible text.
  std::function<std::optional<Exchange_Fault>(std::size_t nth, const std::string& request)> fault;
  /// Whether K8S_Session_Factory has no memory left.
  bool no_memory = false;

 private:
  friend class Storage_Session;
  struct Stored {
    json_spirit::Value document;
    long made_at = 0;
    long gone_at = never * 10'000L;
  };

  int exchange(const std::string& verb, const std::string& url, const json_spirit::Value* body);
  int answer(const std::string& verb, const std::string& url, const json_spirit::Value* body);
  int read(const std::string& url);
  int make(const std::string& url, json_spirit::Value document);
  int remove(const std::string& url);
  int change(const std::string& url, const json_spirit::Value& patch);
  int refuse(int status, const std::string& reason);
  void age(Stored& stored);
  void age_claim(Stored& stored);
  void age_snapshot(Stored& stored);
  std::string original_of(const std::string& sc) const;
  const Class_Behaviour& behaviour_of(const json_spirit::Value& claim) const;
  void learn_names(const std::string& url, const json_spirit::Value& document);

  std::map<std::string, Class_Behaviour> classes_;
  std::map<std::string, Stored> objects_;
  std::map<std::string, std::string> names_;  // legible by real
  std::vector<std::string> requests_;
  json_spirit::Value sent_;
  json_spirit::Value reply_;
  int status_ = 0;
};

}  // namespace test_support
