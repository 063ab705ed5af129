#include "platform/simulated/simulated_workspace.h"

#include "platform/dispatch/sanitizers.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

const char* const domain = "Workspace";

RunningApplication running(const SimulatedApplication& application) {
  return {application.pid, application.desktopId, application.name};
}

}  // namespace

SimulatedWorkspace::SimulatedWorkspace(Dispatch& dispatch, SimulatedDesktop& desktop,
                                       FaultPlan* faults)
    : dispatch_(dispatch), desktop_(desktop), faults_(faults) {}

std::optional<RunningApplication> SimulatedWorkspace::frontmostApplication() {
  const dispatch::order::Unobserved unobserved;
  const auto* front = desktop_.applicationOfWindow(desktop_.activeWindow());
  if (!front || faultDue(faults_, "workspace.front")) return std::nullopt;
  return running(*front);
}

std::optional<RunningApplication> SimulatedWorkspace::application(int pid) {
  const dispatch::order::Unobserved unobserved;
  const auto* found = desktop_.application(pid);
  return found ? std::optional(running(*found)) : std::nullopt;
}

std::optional<WindowInfo> SimulatedWorkspace::info(uint64_t id) {
  const dispatch::order::Unobserved unobserved;
  const auto* window = desktop_.window(id);
  if (!window) return std::nullopt;
  return WindowInfo{id, desktop_.applicationOfWindow(id)->pid, window->title};
}

std::vector<WindowInfo> SimulatedWorkspace::windows() {
  std::vector<WindowInfo> found;
  for (const uint64_t id : desktop_.stacking()) {
    if (auto window = info(id)) found.push_back(*window);
  }
  return found;
}

std::optional<WindowInfo> SimulatedWorkspace::activeWindow() {
  return info(desktop_.activeWindow());
}

Status SimulatedWorkspace::activateWindow(uint64_t id) {
  if (faultDue(faults_, "workspace.activate"))
    return fail(domain, 7, "The window did not come to the front within a second");
  if (!desktop_.window(id)) return fail(domain, 2, "The window is gone");
  dispatch_.clock().sleep(desktop_.activationDelay, "window activation");
  if (!desktop_.activate(id)) return fail(domain, 2, "The window is gone");
  return {};
}

Status SimulatedWorkspace::activateApplication(int pid) {
  for (const uint64_t id : desktop_.stacking()) {
    const auto* owner = desktop_.applicationOfWindow(id);
    if (owner && owner->pid == pid) return activateWindow(id);
  }
  return fail(domain, 2, "The application has no window");
}

Result<Point> SimulatedWorkspace::screenSize() { return desktop_.screenSize; }

std::vector<InstalledApplication> SimulatedWorkspace::installedApplications() {
  const dispatch::order::Unobserved unobserved;
  return desktop_.installed;
}

Status SimulatedWorkspace::launch(const std::string& application) {
  const dispatch::order::Unobserved unobserved;
  const std::string wanted = text::lower(application);
  for (const auto& known : desktop_.installed) {
    if (text::lower(known.desktopId) != wanted && text::lower(known.name) != wanted &&
        text::lower(known.executable) != wanted)
      continue;
    if (faultDue(faults_, "workspace.launch"))
      return fail(domain, 4, known.name + " could not be started");
    const int pid = nextPid_++;
    SimulatedApplication started{pid, known.desktopId, known.name, "gtk", {}};
    started.windows.push_back({static_cast<uint64_t>(pid), known.name, {}, "", {}, 0});
    desktop_.addApplication(std::move(started));
    desktop_.record("launch", known.desktopId);
    return {};
  }
  return fail(domain, 3, "There is no application \"" + application + "\"");
}

Status SimulatedWorkspace::quitApplication(const std::string& application) {
  const dispatch::order::Unobserved unobserved;
  if (faultDue(faults_, "workspace.quit")) return fail(domain, 1, "The X display went away");
  const std::string wanted = text::lower(application);
  for (const auto& candidate : desktop_.applications()) {
    if (candidate.desktopId != wanted && text::lower(candidate.name) != wanted) continue;
    desktop_.removeApplication(candidate.pid);
    return {};
  }
  return fail(domain, 2, application + " has no window");
}

Status SimulatedWorkspace::open(const std::string& addressOrPath) {
  const dispatch::order::Unobserved unobserved;
  const std::string lower = text::lower(addressOrPath);
  if (lower.rfind("http://", 0) != 0 && lower.rfind("https://", 0) != 0 &&
      lower.rfind("mailto:", 0) != 0 && lower.rfind('/', 0) != 0)
    return fail(domain, 5, "Neither a web or mail address nor an existing path: " + addressOrPath);
  if (faultDue(faults_, "workspace.open"))
    return fail(domain, 4, addressOrPath + " could not be opened");
  desktop_.opened.push_back(addressOrPath);
  return {};
}

}  // namespace kestrin
