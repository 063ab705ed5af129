#include "platform/linux/x11_workspace.h"

#include <algorithm>
#include <set>
#include <thread>

#include "platform/text/text.h"

namespace kestrin {
namespace {

const char* const domain = "Workspace";

using std::chrono::milliseconds;

constexpr milliseconds activationLimit(1000);
/// Window managers drop a request now and then while another window is just being mapped.
constexpr milliseconds activationRepeat(200);
constexpr milliseconds lookInterval(2);

/// The message source that window managers obey without question: what a user's own tool sends.
constexpr uint32_t sourcePager = 2;

bool exists(X11Connection& x, xcb_window_t window) {
  auto cookie = xcb_get_window_attributes(x.raw(), window);
  return x11Reply(xcb_get_window_attributes_reply(x.raw(), cookie, nullptr)) != nullptr;
}

int pidOf(X11Connection& x, xcb_window_t window) {
  const auto words = x.wordsProperty(window, "_NET_WM_PID");
  return words.empty() ? 0 : static_cast<int>(words[0]);
}

std::string titleOf(X11Connection& x, xcb_window_t window) {
  std::string title = x.textProperty(window, "_NET_WM_NAME");
  if (title.empty()) title = x.textProperty(window, "WM_NAME");
  return text::replaceInvalidUtf8(title);
}

WindowInfo infoOf(X11Connection& x, xcb_window_t window) {
  return {window, pidOf(x, window), titleOf(x, window)};
}

xcb_window_t activeOf(X11Connection& x) {
  const auto words = x.wordsProperty(x.root(), "_NET_ACTIVE_WINDOW");
  return words.empty() ? XCB_NONE : words[0];
}

std::vector<xcb_window_t> stackingOf(X11Connection& x) {
  auto windows = x.wordsProperty(x.root(), "_NET_CLIENT_LIST_STACKING");
  std::reverse(windows.begin(), windows.end());
  return windows;
}

/// Toolkits give the focus to a child of the window they were told to take it for.
bool hasFocus(X11Connection& x, xcb_window_t window) {
  auto focus = x11Reply(xcb_get_input_focus_reply(x.raw(), xcb_get_input_focus(x.raw()), nullptr));
  xcb_window_t at = focus ? focus->focus : XCB_NONE;
  while (at > 1 && at != x.root()) {  // 1: "wherever the pointer is"
    if (at == window) return true;
    auto tree = x11Reply(xcb_query_tree_reply(x.raw(), xcb_query_tree(x.raw(), at), nullptr));
    if (!tree) return false;
    at = tree->parent;
  }
  return false;
}

void tellWindowManager(X11Connection& x, xcb_window_t window, const char* message,
                       const std::vector<uint32_t>& data) {
  xcb_client_message_event_t event{};
  event.response_type = XCB_CLIENT_MESSAGE;
  event.format = 32;
  event.window = window;
  event.type = x.atom(message);
  std::copy(data.begin(), data.end(), event.data.data32);
  xcb_send_event(x.raw(), 0, x.root(),
                 XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                 reinterpret_cast<const char*>(&event));
}

bool processExists(int pid) {
  return pid > 0 && access(("/proc/" + std::to_string(pid)).c_str(), F_OK) == 0;
}

}  // namespace

X11Workspace::X11Workspace(std::string display) : display_(std::move(display)) {}

std::optional<RunningApplication> X11Workspace::applicationOf(X11Connection& x,
                                                              xcb_window_t window) {
  ProgramTraits traits;
  traits.pid = pidOf(x, window);
  traits.applicationId = x.textProperty(window, "_GTK_APPLICATION_ID");
  // Instance and class, each ended by a zero byte.
  const auto names = text::split(x.textProperty(window, "WM_CLASS"), std::string(1, '\0'));
  if (names.size() > 1) {
    traits.instanceName = names[0];
    traits.className = names[1];
  }
  if (traits.pid == 0 && traits.className.empty()) return std::nullopt;
  const auto entry = entries_.entryOf(traits);
  RunningApplication running{traits.pid, "", traits.className};
  if (entry) {
    running.desktopId = entry->desktopId;
    running.name = entry->name;
  }
  return running;
}

std::optional<RunningApplication> X11Workspace::frontmostApplication() {
  auto x = X11Connection::open(display_, domain);
  if (!x) return std::nullopt;
  const xcb_window_t active = activeOf(**x);
  return active == XCB_NONE ? std::nullopt : applicationOf(**x, active);
}

std::optional<RunningApplication> X11Workspace::application(int pid) {
  if (auto x = X11Connection::open(display_, domain)) {
    for (const xcb_window_t window : stackingOf(**x)) {
      if (pidOf(**x, window) == pid) return applicationOf(**x, window);
    }
  }
  if (!processExists(pid)) return std::nullopt;
  const auto entry = entries_.entryOf({pid, "", "", ""});
  if (!entry) return RunningApplication{pid, "", executableOf(pid)};
  return RunningApplication{pid, entry->desktopId, entry->name};
}

std::vector<WindowInfo> X11Workspace::windows() {
  std::vector<WindowInfo> found;
  auto x = X11Connection::open(display_, domain);
  if (!x) return found;
  for (const xcb_window_t window : stackingOf(**x)) found.push_back(infoOf(**x, window));
  return found;
}

std::optional<WindowInfo> X11Workspace::activeWindow() {
  auto x = X11Connection::open(display_, domain);
  if (!x) return std::nullopt;
  const xcb_window_t active = activeOf(**x);
  if (active == XCB_NONE || !exists(**x, active)) return std::nullopt;
  return infoOf(**x, active);
}

Status X11Workspace::activateWindow(uint64_t id) {
  auto x = X11Connection::open(display_, domain);
  if (!x) return fail(x.error());
  return activate(**x, static_cast<xcb_window_t>(id));
}

Status X11Workspace::activate(X11Connection& x, xcb_window_t window) {
  if (x.wordsProperty(x.root(), "_NET_SUPPORTING_WM_CHECK").empty())
    return fail(domain, 6, "There is no window manager that can activate windows");
  const Deadline deadline(activationLimit);
  while (true) {
    if (!exists(x, window)) return fail(domain, 2, "The window is gone");
    tellWindowManager(x, window, "_NET_ACTIVE_WINDOW",
                      {sourcePager, x.serverTime(activationLimit), 0});
    const Deadline repeat(activationRepeat);
    int held = 0;
    do {
      // Twice in a row: window managers let go of the old focus in between.
      held = activeOf(x) == window && hasFocus(x, window) ? held + 1 : 0;
      if (held == 2) return {};
      if (x.lost()) return fail(domain, 1, "The X display went away");
      if (!exists(x, window)) return fail(domain, 2, "The window is gone");
      if (deadline.passed())
        return fail(domain, 7, "The window did not come to the front within a second");
      std::this_thread::sleep_for(lookInterval);
    } while (!repeat.passed());
  }
}

Status X11Workspace::activateApplication(int pid) {
  auto x = X11Connection::open(display_, domain);
  if (!x) return fail(x.error());
  for (const xcb_window_t window : stackingOf(**x)) {
    if (pid > 0 && pidOf(**x, window) == pid) return activate(**x, window);
  }
  return fail(domain, 2, "The application has no window");
}

Result<Point> X11Workspace::screenSize() {
  auto x = X11Connection::open(display_, domain);
  if (!x) return fail(x.error());
  // Not what the connection's start said: the user may have turned or added a monitor since.
  auto cookie = xcb_get_geometry((*x)->raw(), (*x)->root());
  auto size = x11Reply(xcb_get_geometry_reply((*x)->raw(), cookie, nullptr));
  if (!size) return fail(domain, 1, "The X display went away");
  return Point{size->width, size->height};
}

std::vector<InstalledApplication> X11Workspace::installedApplications() {
  return entries_.installed();
}

Status X11Workspace::launch(const std::string& application) { return entries_.launch(application); }

Status X11Workspace::quitApplication(const std::string& application) {
  auto x = X11Connection::open(display_, domain);
  if (!x) return fail(x.error());
  const auto known = entries_.find(application);
  const std::string wanted = text::lower(text::trim(application));
  int asked = 0;
  for (const xcb_window_t window : stackingOf(**x)) {
    const auto running = applicationOf(**x, window);
    if (!running) continue;
    const bool same = known && !running->desktopId.empty()
                          ? running->desktopId == known->desktopId
                          : text::lower(running->name) == wanted ||
                                text::lower(executableOf(running->pid)) == wanted;
    if (!same) continue;
    tellWindowManager(**x, window, "_NET_CLOSE_WINDOW",
                      {(*x)->serverTime(activationLimit), sourcePager});
    ++asked;
  }
  if (asked == 0) return fail(domain, 2, application + " has no window");
  if (!(*x)->roundTrip()) return fail(domain, 1, "The X display went away");
  return {};
}

Status X11Workspace::open(const std::string& addressOrPath) {
  return DesktopEntries::open(addressOrPath);
}

}  // namespace kestrin
