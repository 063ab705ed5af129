#include "platform/simulated/simulated_pasteboard.h"

namespace kestrin {

SimulatedPasteboard::SimulatedPasteboard(Dispatch& dispatch, SimulatedDesktop& desktop,
                                         FaultPlan* faults)
    : dispatch_(dispatch), desktop_(desktop), faults_(faults) {}

std::optional<std::string> SimulatedPasteboard::string() {
  const dispatch::order::Unobserved unobserved;
  if (faultDue(faults_, "pasteboard.string")) return std::nullopt;
  return desktop_.clipboard().text;
}

Status SimulatedPasteboard::setString(const std::string& text) {
  const dispatch::order::Unobserved unobserved;
  if (faultDue(faults_, "pasteboard.set"))
    return fail("Pasteboard", 2, "The clipboard could not be taken over");
  desktop_.setClipboard(text, true);
  return {};
}

Status SimulatedPasteboard::clear() {
  const dispatch::order::Unobserved unobserved;
  if (faultDue(faults_, "pasteboard.clear"))
    return fail("Pasteboard", 3, "The clipboard could not be cleared");
  desktop_.setClipboard(std::nullopt, false);
  return {};
}

int SimulatedPasteboard::fetches() { return desktop_.clipboard().fetches; }

bool SimulatedPasteboard::waitForFetch(int seen, Duration timeout) {
  const SteadyTime end = dispatch_.clock().steadyNow() + timeout;
  while (desktop_.clipboard().fetches <= seen) {
    const Duration left = end - dispatch_.clock().steadyNow();
    auto fetched = dispatch_.makeSemaphore(0, "the clipboard is fetched");
    desktop_.addFetchWaiter(fetched);
    if (left <= Duration(0) || !fetched->wait(left)) return false;
  }
  return true;
}

bool SimulatedPasteboard::isOwner() {
  const dispatch::order::Unobserved unobserved;
  return desktop_.clipboard().ours && desktop_.clipboard().text.has_value();
}

}  // namespace kestrin
