#pragma once

#include "platform/browser.h"
#include "platform/simulated/fault_plan.h"
#include "platform/simulated/simulated_desktop.h"

namespace kestrin {

/// The tabs of the scripted desktop's windows.
class SimulatedBrowser : public Browser {
 public:
  explicit SimulatedBrowser(SimulatedDesktop& desktop, FaultPlan* faults = nullptr)
      : desktop_(desktop), faults_(faults) {}

  Result<BrowserTab> activeTab(int pid) override;
  Result<std::string> pageText(int pid, size_t limit) override;
  Result<bool> selectTab(int pid, const std::string& urlToken, const std::string& title) override;

 private:
  /// The program's windows with tabs, frontmost first; never empty.
  Result<std::vector<SimulatedWindow*>> windows(int pid, const char* site);

  SimulatedDesktop& desktop_;
  FaultPlan* faults_;
};

}  // namespace kestrin
