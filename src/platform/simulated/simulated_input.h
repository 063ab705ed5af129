#pragma once

#include "platform/key_monitor.h"
#include "platform/simulated/fault_plan.h"
#include "platform/simulated/simulated_desktop.h"
#include "platform/synthetic_input.h"

namespace kestrin {

/// Chords and the pointer of the scripted desktop. Sites: "input.chord", "input.pointer",
/// "input.button".
class SimulatedInput final : public SyntheticInput {
 public:
  SimulatedInput(Dispatch& dispatch, SimulatedDesktop& desktop, FaultPlan* faults = nullptr);

  Status chord(const std::vector<std::string>& modifiers, const std::string& key) override;
  Result<Point> pointer() override;
  Status movePointer(Point to) override;
  Status buttonDown(int button) override;
  Status buttonUp(int button) override;

 private:
  Status button(int button, bool down);

  Dispatch& dispatch_;
  SimulatedDesktop& desktop_;
  FaultPlan* faults_;
};

/// The hold key of the scripted desktop. Site: "keys.start".
class SimulatedKeyMonitor final : public KeyMonitor {
 public:
  explicit SimulatedKeyMonitor(SimulatedDesktop& desktop, FaultPlan* faults = nullptr);

  Status start(const std::string& key, std::function<void(KeyEdge)> onEdge) override;
  void stop() override;
  std::vector<std::string> availableKeys() override;

 private:
  SimulatedDesktop& desktop_;
  FaultPlan* faults_;
  SubscriptionHandle watching_;
};

}  // namespace kestrin
