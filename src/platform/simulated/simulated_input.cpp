#include "platform/simulated/simulated_input.h"

#include <algorithm>

namespace kestrin {
namespace {

const char* const domain = "SyntheticInput";
constexpr std::chrono::milliseconds keyHold(15);

}  // namespace

SimulatedInput::SimulatedInput(Dispatch& dispatch, SimulatedDesktop& desktop, FaultPlan* faults)
    : dispatch_(dispatch), desktop_(desktop), faults_(faults) {}

Status SimulatedInput::chord(const std::vector<std::string>& modifiers, const std::string& key) {
  if (faultDue(faults_, "input.chord")) return fail(domain, 1, "The X display went away");
  if (key.empty() || key.rfind("nosuch", 0) == 0)
    return fail(domain, 3, "The keyboard layout has no key \"" + key + "\"");
  for (const auto& modifier : modifiers) {
    if (modifier != "control" && modifier != "shift" && modifier != "alt" && modifier != "super")
      return fail(domain, 4, "There is no modifier \"" + modifier + "\"");
  }
  for (const auto& held : desktop_.heldModifiers) desktop_.record("modifier released", held);
  desktop_.deliverChord(modifiers, key);
  dispatch_.clock().sleep(keyHold, "key hold");
  // What the user let go meanwhile stays up.
  for (const auto& held : desktop_.heldModifiers) desktop_.record("modifier restored", held);
  return {};
}

Result<Point> SimulatedInput::pointer() {
  if (faultDue(faults_, "input.pointer")) return fail(domain, 1, "The X display went away");
  return desktop_.pointer;
}

Status SimulatedInput::movePointer(Point to) {
  if (faultDue(faults_, "input.pointer")) return fail(domain, 1, "The X display went away");
  desktop_.pointer = {std::clamp(to.x, 0, desktop_.screenSize.x - 1),
                      std::clamp(to.y, 0, desktop_.screenSize.y - 1)};
  return {};
}

Status SimulatedInput::button(int button, bool down) {
  if (faultDue(faults_, "input.button")) return fail(domain, 1, "The X display went away");
  desktop_.deliverButton(button, down);
  return {};
}

Status SimulatedInput::buttonDown(int button) { return this->button(button, true); }
Status SimulatedInput::buttonUp(int button) { return this->button(button, false); }

SimulatedKeyMonitor::SimulatedKeyMonitor(SimulatedDesktop& desktop, FaultPlan* faults)
    : desktop_(desktop), faults_(faults) {}

Status SimulatedKeyMonitor::start(const std::string& key, std::function<void(KeyEdge)> onEdge) {
  watching_.reset();
  const auto keys = availableKeys();
  if (std::find(keys.begin(), keys.end(), key) == keys.end())
    return fail("KeyMonitor", 3, "There is no key named \"" + key + "\" to hold");
  if (faultDue(faults_, "keys.start"))
    return fail("KeyMonitor", 1, "The X display :0 cannot be reached");
  watching_ = desktop_.observeKeys(std::move(onEdge));
  return {};
}

void SimulatedKeyMonitor::stop() { watching_.reset(); }

std::vector<std::string> SimulatedKeyMonitor::availableKeys() {
  return {"Right Ctrl", "Menu", "F13", "fn"};
}

}  // namespace kestrin
