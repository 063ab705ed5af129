#pragma once

#include "platform/pasteboard.h"
#include "platform/simulated/fault_plan.h"
#include "platform/simulated/simulated_desktop.h"

namespace kestrin {

/// The clipboard of the scripted desktop. Sites: "pasteboard.string", "pasteboard.set",
/// "pasteboard.clear".
class SimulatedPasteboard final : public Pasteboard {
 public:
  SimulatedPasteboard(Dispatch& dispatch, SimulatedDesktop& desktop, FaultPlan* faults = nullptr);

  std::optional<std::string> string() override;
  Status setString(const std::string& text) override;
  Status clear() override;
  int fetches() override;
  bool waitForFetch(int seen, Duration timeout) override;
  bool isOwner() override;

 private:
  Dispatch& dispatch_;
  SimulatedDesktop& desktop_;
  FaultPlan* faults_;
};

}  // namespace kestrin
