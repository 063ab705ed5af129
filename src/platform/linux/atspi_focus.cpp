#include "platform/linux/atspi_focus.h"

#include <tuple>

#include "platform/linux/atspi_toolkits.h"

namespace kestrin::atspi {
namespace {

/// A walk is the answer of last resort; a window with more nodes than this is not searched to its
/// end.
constexpr int walkLimit = 3000;

tl::unexpected<Error> nothingFocused() {
  return fail("Accessibility", dbus::unreachable, "No element has the keyboard focus");
}

}  // namespace

void FocusTracker::attach(dbus::Connection& connection) {
  std::vector<SubscriptionHandle> fresh;
  const auto follow = [&](const std::string& rule, std::map<std::string, std::string>& paths) {
    auto subscription = connection.subscribe(rule, [this, &paths](sdbus::Message& message) {
      auto body = dbus::Connection::read<std::tuple<std::string, int32_t>>(message);
      if (!body) return;
      const auto& [detail, on] = *body;
      if (detail == "focused" && on == 0) return;
      const std::lock_guard lock(mutex_);
      paths[message.getSender()] = message.getPath();
    });
    if (subscription) fresh.push_back(std::move(*subscription));
  };
  follow(
      "type='signal',interface='org.a11y.atspi.Event.Object',member='StateChanged',arg0='focused'",
      focused_);
  follow("type='signal',interface='org.a11y.atspi.Event.Window',member='Activate'", activated_);
  auto left = connection.subscribe(
      "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg2=''",
      [this](sdbus::Message& message) {
        auto name = dbus::Connection::read<std::string>(message);
        if (!name) return;
        const std::lock_guard lock(mutex_);
        focused_.erase(*name);
        activated_.erase(*name);
      });
  if (left) fresh.push_back(std::move(*left));
  AtspiBus::registerEvent(connection, "object:state-changed:focused");
  AtspiBus::registerEvent(connection, "window:activate");
  subscriptions_.swap(fresh);
}

AxElement FocusTracker::remembered(const std::map<std::string, std::string>& paths,
                                   const std::string& busName) {
  const std::lock_guard lock(mutex_);
  auto path = paths.find(busName);
  return path == paths.end() ? AxElement{} : AxElement{busName, path->second};
}

Result<std::vector<AxElement>> FocusTracker::activeWindows(int pid, const Budget& budget) {
  auto roots = bus_.applications(pid, budget);
  if (!roots) return fail(roots.error());
  std::vector<AxElement> active;
  std::vector<AxElement> others;
  for (const auto& root : *roots) {
    auto windows = bus_.children(root, budget);
    if (!windows) continue;
    for (const auto& window : *windows) {
      auto states = bus_.states(window, budget);
      if (!states) continue;
      if (states->has(State::active)) {
        active.push_back(window);
      } else if (states->has(State::showing)) {
        others.push_back(window);
      }
    }
  }
  if (active.empty()) active.swap(others);
  if (active.empty())
    return fail("Accessibility", dbus::unreachable, "The program shows no window");
  return active;
}

Result<AxElement> FocusTracker::window(int pid, const Budget& budget) {
  auto roots = bus_.applications(pid, budget);
  if (!roots) return fail(roots.error());
  for (const auto& root : *roots) {
    const auto known = remembered(activated_, root.bus);
    if (!known.valid()) continue;
    auto states = bus_.states(known, budget);
    if (states && states->has(State::active)) return known;
  }
  auto windows = activeWindows(pid, budget);
  if (!windows) return fail(windows.error());
  return windows->front();
}

Result<AxElement> FocusTracker::element(int pid, const Budget& budget) {
  auto roots = bus_.applications(pid, budget);
  if (!roots) return fail(roots.error());
  for (const auto& root : *roots) {
    const auto known = remembered(focused_, root.bus);
    if (!known.valid()) continue;
    auto states = bus_.states(known, budget);
    if (states && states->has(State::focused) && !states->has(State::defunct)) return known;
  }
  auto windows = activeWindows(pid, budget);
  if (!windows) return fail(windows.error());
  for (const auto& window : *windows) {
    auto found = descendant(window, budget);
    if (found) return found;
    if (budget.spent()) return found;
  }
  return nothingFocused();
}

Result<AxElement> FocusTracker::descendant(const AxElement& root, const Budget& budget) {
  // The program's own search takes a millisecond; only toolkits without it are walked.
  auto matches = bus_.matches(root, {State::focused}, {}, 0, budget);
  if (!matches) return walk(root, budget);
  return editableOf(*matches, budget);
}

Result<AxElement> FocusTracker::editableOf(const std::vector<AxElement>& focused,
                                           const Budget& budget) {
  if (focused.empty()) return nothingFocused();
  for (const auto& element : focused) {
    auto states = bus_.states(element, budget);
    if (states && states->has(State::editable)) return element;
  }
  return focused.back();
}

Result<AxElement> FocusTracker::walk(const AxElement& root, const Budget& budget) {
  std::vector<AxElement> open{root};
  AxElement focused;
  for (int visited = 0; !open.empty() && visited < walkLimit; ++visited) {
    const auto node = open.back();
    open.pop_back();
    auto states = bus_.states(node, budget);
    if (budget.spent())
      return fail("Accessibility", dbus::timeout, "The program is too slow to find its focus");
    if (!states) continue;
    if (states->has(State::focused) && node != root) {
      if (states->has(State::editable)) return node;
      focused = node;
    }
    // Not "showing": GTK 4 leaves that out for what is on the screen.
    if (node != root && !states->has(State::visible)) continue;
    auto children = bus_.children(node, budget);
    if (children) open.insert(open.end(), children->rbegin(), children->rend());
  }
  if (focused.valid()) return focused;
  return nothingFocused();
}

}  // namespace kestrin::atspi
