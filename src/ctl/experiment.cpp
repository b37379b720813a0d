#include "ctl/experiment.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include "ctl/human.h"
#include "ctl/interrupt.h"
#include "ctl/stage_view.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_storage_class.h"
#include "k8s/api/k8s_volume_snapshot.h"
#include "kolt/clock.h"

namespace ctl {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int not_found = 404;
constexpr char first_answer[] = "\nInterrupted: what was made is being removed. Interrupt again to leave it.\n";

/// Thrown out of a wait of the experiment.
struct Interrupted {};

/// How to remove what a program that was ended at once left behind.
std::string removal_hint(const std::string& ns, const Validation_Units& units) {
  std::string copies;
  for (const auto& unit : units)
    if (!unit.temp_sc_.name_.empty() && !unit.temp_sc_.deleted_) copies += ' ' + unit.temp_sc_.name_;
  std::string text = "\ntessarinctl: Temporary claims and snapshots may be left in namespace " + ns +
                     ".\n'tessarinctl clean " + ns + " --dry-run' lists them, with --yes it removes them.\n";
  if (!copies.empty()) text += "Copies of storage classes: kubectl delete storageclass" + copies + "\n";
  return text;
}

/// The clock of the experiment: shows how far it is whenever the library asks for the time or waits, and ends the wait
/// when the user interrupts.
class Watched_Clock : public kolt::Clock {
 public:
  Watched_Clock(const Validation_Units& units, std::string ns, std::ostream& err, Progress_View::Mode mode)
      : units_(units), ns_(std::move(ns)), view_(err, mode, terminal_size()), previous_(kolt::set_clock(this)) {
    interrupt_.answer(first_answer, removal_hint(ns_, units_));
  }
  ~Watched_Clock() override { kolt::set_clock(previous_); }

  time_t now() override {
    show();
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  }
  void sleep(milliseconds span) override {
    const auto end = steady_clock::now() + span;
    for (milliseconds left = span; left.count() > 0;
         left = std::chrono::duration_cast<milliseconds>(end - steady_clock::now())) {
      show();
      if (interrupted() && !cleaning_) throw Interrupted();
      interrupt_.sleep(std::min(left, milliseconds(1000)));
    }
  }

  bool interrupted() const { return interrupt_.count() > 0; }
  /// From now on nothing ends a wait.
  void begin_cleaning() { cleaning_ = true; }
  /// Shows how it ended.
  void show() {
    interrupt_.answer(first_answer, removal_hint(ns_, units_));
    if (interrupted() && !told_interrupt_) view_.keep();
    told_interrupt_ = interrupted();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(steady_clock::now() - start_).count();
    view_.show(title(), human_duration(static_cast<uint64_t>(seconds)), stages_of(units_, cleaning_));
  }

 private:
  const char* title() const {
    if (cleaning_) return "Removing the temporary objects";
    const bool snapshots =
        std::any_of(units_.begin(), units_.end(), [](const auto& unit) { return !unit.pvc_snap_.name_.empty(); });
    return snapshots ? "Taking snapshots" : "Making claims and clones";
  }

  const Validation_Units& units_;
  const std::string ns_;
  const steady_clock::time_point start_ = steady_clock::now();
  Interrupt interrupt_;
  Stage_View view_;
  bool cleaning_ = false;
  bool told_interrupt_ = false;
  kolt::Clock* const previous_;
};

void add_left(K8S_Resource& resource, const K8S_Client_var& client, const char* kind, const std::string& name,
              std::vector<std::string>& left) {
  json_spirit::Value ignored;
  if (name.empty() || (!resource.get(name, ignored, false) && client->get_response_code() == not_found)) return;
  left.push_back(std::string(kind) + ' ' + name);
}

std::vector<std::string> what_is_left(const K8S_Client_var& client, const std::string& ns,
                                      const Validation_Units& units) {
  K8S_PVC claims(client, ns);
  K8S_Volume_Snapshot snapshots(client, ns);
  K8S_Storage_Class classes(client);
  std::vector<std::string> left;
  for (const auto& unit : units) {
    add_left(claims, client, "claim", unit.pvc_.name_, left);
    add_left(claims, client, "claim", unit.pvc_clone_.name_, left);
    add_left(snapshots, client, "snapshot", unit.pvc_snap_.name_, left);
    add_left(classes, client, "storage class", unit.temp_sc_.name_, left);
  }
  return left;
}

}  // namespace

Experiment make_experiment(K8S_Client_var client, const std::string& ns, const Storage_Classes& classes, int timeout,
                           std::ostream& err, Progress_View::Mode mode) {
  Experiment result;
  std::optional<Storage_Class_Capability_Config> run(std::in_place, client, ns, timeout);
  {
    Watched_Clock clock(run->csi_units(), ns, err, mode);
    try {
      result.made = run->init(classes.csi, classes.nfs, classes.local);
      if (result.made && !clock.interrupted()) result.published = run->update();
    } catch (const Interrupted&) {
      result.made = false;
    }
    result.interrupted = clock.interrupted();
    result.csi = run->csi_units();
    clock.begin_cleaning();
    run.reset();
  }
  result.left = what_is_left(client, ns, result.csi);
  return result;
}

}  // namespace ctl
