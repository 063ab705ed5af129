#pragma once

#include <optional>

#include "platform/control_bus.h"
#include "platform/simulated/fault_plan.h"

namespace kestrin {

/// A session bus with at most one application on it: what is sent reaches this object's own
/// `serve`. Sites: "control.serve", "control.send", "control.status", "control.log".
class SimulatedControlBus final : public ControlBus {
 public:
  explicit SimulatedControlBus(FaultPlan* faults = nullptr) : faults_(faults) {}

  /// Another application owns the name already.
  bool alreadyRunning = false;

  Status serve(Handlers handlers) override {
    if (faultDue(faults_, "control.serve"))
      return fail("ControlBus", controlNoBus, "There is no session bus");
    if (alreadyRunning)
      return fail("ControlBus", controlAlreadyRunning, "Kestrin is already running");
    handlers_ = std::move(handlers);
    return {};
  }
  void stop() override { handlers_.reset(); }

  Status send(ControlCommand command) override {
    if (auto reachable = reach("control.send"); !reachable) return reachable;
    handlers_->onCommand(command);
    return {};
  }
  Result<std::string> status() override {
    if (auto reachable = reach("control.status"); !reachable) return fail(reachable.error());
    return handlers_->status();
  }
  Result<std::string> log() override {
    if (auto reachable = reach("control.log"); !reachable) return fail(reachable.error());
    return handlers_->log ? handlers_->log() : std::string("[]");
  }
  Status call(const std::string& what) override {
    if (auto reachable = reach("control.send"); !reachable) return reachable;
    if (handlers_->onCall) handlers_->onCall(what);
    return {};
  }

 private:
  Status reach(const char* site) {
    if (faultDue(faults_, site))
      return fail("ControlBus", controlNoAnswer, "Kestrin does not answer");
    if (!handlers_) return fail("ControlBus", controlNotRunning, "Kestrin is not running");
    return {};
  }

  FaultPlan* faults_;
  std::optional<Handlers> handlers_;
};

}  // namespace kestrin
