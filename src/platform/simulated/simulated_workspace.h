#pragma once

#include "platform/simulated/fault_plan.h"
#include "platform/simulated/simulated_desktop.h"

namespace kestrin {

/// Windows and programs of the scripted desktop. Sites: "workspace.activate", "workspace.launch",
/// "workspace.quit", "workspace.open", "workspace.front" (nothing in front).
class SimulatedWorkspace final : public Workspace {
 public:
  SimulatedWorkspace(Dispatch& dispatch, SimulatedDesktop& desktop, FaultPlan* faults = nullptr);

  std::optional<RunningApplication> frontmostApplication() override;
  std::optional<RunningApplication> application(int pid) override;
  std::vector<WindowInfo> windows() override;
  std::optional<WindowInfo> activeWindow() override;
  Status activateWindow(uint64_t id) override;
  Status activateApplication(int pid) override;
  Result<Point> screenSize() override;

  std::vector<InstalledApplication> installedApplications() override;
  /// Gives the program a window of its own, which becomes active.
  Status launch(const std::string& application) override;
  Status quitApplication(const std::string& application) override;
  /// Recorded in the desktop's `opened`. Paths count as existing when they begin with "/".
  Status open(const std::string& addressOrPath) override;

 private:
  std::optional<WindowInfo> info(uint64_t id);

  Dispatch& dispatch_;
  SimulatedDesktop& desktop_;
  FaultPlan* faults_;
  int nextPid_ = 5000;
};

}  // namespace kestrin
