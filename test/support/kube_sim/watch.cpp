#include "support/kube_sim/watch.h"

#include <chrono>

#include "json_spirit/dump.h"
#include "support/kube_sim/listing.h"
#include "support/kube_sim/object_text.h"
#include "support/kube_sim/status_document.h"

namespace kube_sim {

namespace {

typedef std::chrono::steady_clock Clock;

/// One watch: who is told of what.
class Watcher {
 public:
  Watcher(const Request& request, const Target& target, const Resource& resource)
      : selection_(request, resource), resource_(resource), ns_(target.ns), name_(target.name) {}

  /// The lines for @a event; empty when it does not concern the watcher.
  std::string line(const Store_Event& event) const {
    const bool before = concerns(event.before), after = concerns(event.after);
    if (after) return line(before ? "MODIFIED" : "ADDED", *event.after);
    if (!before) return {};
    // What no longer matches is gone for the watcher.
    return line("DELETED", event.after ? *event.after : *event.last);
  }

  std::string line_for(const Stored_Object_var& object) const {
    return concerns(object) ? line("ADDED", *object) : std::string();
  }

 private:
  bool concerns(const Stored_Object_var& object) const {
    return object && (ns_.empty() || object->id.ns == ns_) && (name_.empty() || object->id.name == name_) &&
           selection_.matches(object->value);
  }

  std::string line(const char* type, const Stored_Object& object) const {
    return std::string("{\"type\":\"") + type + "\",\"object\":" + trimmed(object_text(resource_, object.members)) +
           "}\n";
  }

  static std::string trimmed(std::string text) {
    text.pop_back();  // the line end
    return text;
  }

  const Selection selection_;
  const Resource& resource_;
  const std::string ns_, name_;
};

std::string expired_line(std::uint64_t wanted, std::uint64_t oldest) {
  std::string status =
      failure(410, "Expired",
              "too old resource version: " + std::to_string(wanted) + " (" + std::to_string(oldest) + ")")
          .body;
  status.pop_back();
  return "{\"type\":\"ERROR\",\"object\":" + status + "}\n";
}

Clock::time_point end_of(const Request& request) {
  const std::string* seconds = request.parameter("timeoutSeconds");
  const long limit = seconds ? std::strtol(seconds->c_str(), nullptr, 10) : 0;
  return Clock::now() + std::chrono::seconds(limit > 0 ? limit : 1800);
}

}  // namespace

void run_watch(const Request& request, const Target& target, const Resource& resource, Object_Store& store,
               Watch_Sink& sink) {
  const Watcher watcher(request, target, resource);
  const auto end = end_of(request);
  const std::string* version = request.parameter("resourceVersion");
  std::uint64_t revision = version ? std::strtoull(version->c_str(), nullptr, 10) : 0;
  const std::uint64_t wanted = revision;
  std::string first;
  if (revision == 0) {
    Object_Store::Transaction all(store);
    revision = all.revision();
    for (const auto& object : all.list(resource.group, resource.plural, target.ns)) first += watcher.line_for(object);
  }
  if (!sink.start() || (!first.empty() && !sink.send(first))) return;
  std::vector<Store_Event> events;
  while (sink.open() && Clock::now() < end) {
    if (!store.events_after(revision, resource.group, resource.plural, std::chrono::milliseconds(50), events)) {
      sink.send(expired_line(wanted, store.oldest()));
      return;
    }
    std::string lines;
    for (const auto& event : events) lines += watcher.line(event);
    if (!lines.empty() && !sink.send(lines)) return;
  }
}

}  // namespace kube_sim
